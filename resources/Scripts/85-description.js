// The default host: what it says of itself when another program asks the agent. See
// docs/host-script.md for the form.
(function (host) {
  "use strict";

  const dateOf = (milliseconds) => (milliseconds === null ? null : new Date(milliseconds));

  function describeSet(state, now) {
    return {
      index: state.index,
      name: state.set === null ? "" : state.set,
      state: host.texts.description(state, now),
      takesPart: state.takesPart,
      next: state.takesPart ? dateOf(state.next) : null,
      lastGood: dateOf(state.lastGood),
      lastFailed: dateOf(state.failedAt),
      futileStarts: state.futileStarts,
    };
  }

  // The engine has no way to leave a member out but null.
  host.describe = function () {
    const now = Date.now();
    const run = host.running.present(), pause = host.pause.present();
    return {
      application: host.application.found === null ? "" : host.application.found.name,
      log: host.log.path(),
      status: host.menu.status(),
      pause: pause === null ? null : { until: dateOf(pause.until) },
      run: run === null ? null : { set: run.set, since: dateOf(run.since) },
      sets: host.states.list().map((state) => describeSet(state, now)),
    };
  };
})((this.host = this.host || {}));
