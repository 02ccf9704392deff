#include "tools/kvctl/WhyCommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/AgentState.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/Explanation.h"
#include "tools/kvctl/QtApplication.h"

namespace kv::kvctl {
namespace {

Tone toneOf(Explanation::Verdict verdict) {
  switch (verdict) {
    case Explanation::Verdict::kStarts:
      return Tone::kGood;
    case Explanation::Verdict::kWaits:
      return Tone::kWarning;
    case Explanation::Verdict::kNever:
      return Tone::kBad;
    case Explanation::Verdict::kNotDue:
      break;
  }
  return Tone::kPlain;
}

const char* wordFor(Explanation::Verdict verdict) {
  switch (verdict) {
    case Explanation::Verdict::kStarts:
      return "starts";
    case Explanation::Verdict::kWaits:
      return "waits";
    case Explanation::Verdict::kNever:
      return "never";
    case Explanation::Verdict::kNotDue:
      break;
  }
  return "not-due";
}

std::string hostText(const Explanation& one, const Rehearsal::Result& rehearsal) {
  return fmt::format("destination {} usable: {}; backup running: {}; application open: {}",
                     shown(BackupSet(*one.set.record).destination().value_or("(none)")),
                     one.mayStart ? "yes" : "no", rehearsal.isBackupRunning ? "yes" : "no",
                     rehearsal.isApplicationOpen ? "yes" : "no");
}

std::string textOf(const Explanation& one, const Explainer& explainer, const Style& style) {
  std::string text = style.paint(one.set.shownName(), Tone::kHeading) + "\n" +
                     style.paint(wrapped(shown(one.sentence), 2, style.width), toneOf(one.verdict));
  const auto add = [&](const char* label, const std::string& value) {
    text += style.paint(fmt::format("  {:<9}", label), Tone::kDim) + shown(value) + "\n";
  };
  add("gate", one.gate);
  add("rule", one.rule);
  const char* label = "compares";
  for (const std::string& value : one.values) {
    add(std::exchange(label, ""),
        value.substr(std::min(value.find_first_not_of(' '), value.size())));
  }
  add("host", hostText(one, explainer.rehearsal()));
  if (one.isDue) {
    add("behind", one.before.empty() ? "nobody" : fmt::format("{}", fmt::join(one.before, ", ")));
  }
  add("due", one.isDue ? "now" : one.next ? dayStamp(*one.next) : "never, as things stand");
  return text;
}

Json objectOf(const Explanation& one, const Explainer& explainer) {
  return {{"set", one.set.name},
          {"index", one.set.index},
          {"document", explainer.sets().documents()[one.set.document].path},
          {"verdict", wordFor(one.verdict)},
          {"sentence", one.sentence},
          {"gate", one.gate},
          {"rule", one.rule},
          {"values", one.values},
          {"due", one.isDue},
          {"host",
           {{"mayStart", one.mayStart},
            {"backupRunning", explainer.rehearsal().isBackupRunning},
            {"applicationOpen", explainer.rehearsal().isApplicationOpen}}},
          {"before", one.before},
          {"next", instantJson(one.next)}};
}

int why(const Context& context, const std::optional<std::string>& name) {
  settleZone();
  const auto application = makeQtApplication();
  Explainer explainer(context);
  const auto chosen = explainer.sets().find(name);
  Json list = Json::array();
  std::string text;
  bool isAnyBehind = false;
  for (const SetEntry& set : chosen) {
    const Explanation one = explainer.explain(set);
    isAnyBehind = isAnyBehind || !one.before.empty();
    if (context.asJson) {
      list.push_back(objectOf(one, explainer));
    } else {
      text += (text.empty() ? "" : "\n") + textOf(one, explainer, context.style);
    }
  }
  if (context.asJson) {
    printJson({{"at", utcStamp(explainer.now())},
               {"sets", std::move(list)},
               {"remarks", explainer.rehearsal().remarks}});
    return static_cast<int>(ExitStatus::kDone);
  }
  if (chosen.empty()) text = "There are no backup sets.\n";
  if (isAnyBehind) {
    text += context.style.paint(
                "Who stands behind others may see sets that fall due meanwhile go first, too.",
                Tone::kDim) +
            "\n";
  }
  for (const std::string& remark : explainer.rehearsal().remarks) {
    text += context.style.paint("The host says: " + shown(remark), Tone::kDim) + "\n";
  }
  print(text + noAgentRemark(context));
  return static_cast<int>(ExitStatus::kDone);
}

}  // namespace

void addWhyCommand(CLI::App& app, Selection& selection) {
  CLI::App* const command =
      app.add_subcommand("why", "What the next tick does with each set, and why");
  const auto name = std::make_shared<std::optional<std::string>>();
  command->add_option("SET", *name, "Only the sets of this name");
  command->callback([&selection, name] {
    selection.run = [name](const Context& context) { return why(context, *name); };
  });
}

}  // namespace kv::kvctl
