#!/usr/bin/env python3
"""Checks what lies beside the installed programs: check.py PREFIX CHECK.

Each check is a function of the prefix that was installed to; see CHECKS.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

DESKTOP_ID = "com.kelvara.KVScheduler"
COMMANDS = {"KVScheduler": (),
            "kvbackup": ("add", "edit", "remove", "hold", "release", "run", "list"),
            "kvctl": ("status", "list", "why", "forecast", "check", "trace", "record", "replay")}

# Programs whose own options may also stand behind a command.
TAKES_OPTIONS_ANYWHERE = {"kvctl"}


def run(*command, **options):
    """The output; a command that fails ends the check with all that it has said."""
    done = subprocess.run([str(part) for part in command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        sys.exit(f"{command} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def expect(is_right, what):
    if not is_right:
        sys.exit(what)


def calls(name):
    """All ways to call a program that have a help of their own."""
    return [()] + [(command,) for command in COMMANDS[name]]


def options_of(program, command=()):
    return set(re.findall(r"--[a-z][a-z-]*", run(program, *command, "--help")))


def desktop(prefix):
    entries = (prefix / f"share/applications/{DESKTOP_ID}.desktop",
               prefix / f"etc/xdg/autostart/{DESKTOP_ID}.desktop")
    icons = prefix / "share/icons/hicolor/scalable/apps"
    for entry in entries:
        run("desktop-file-validate", entry)
        keys = dict(line.split("=", 1) for line in entry.read_text().splitlines() if "=" in line)
        expect((prefix / "bin" / keys["Exec"]).exists(), f"{entry}: no program {keys['Exec']}")
        expect((icons / f"{keys['Icon']}.svg").exists(), f"{entry}: no icon {keys['Icon']}")
    metainfo = prefix / f"share/metainfo/{DESKTOP_ID}.metainfo.xml"
    run("appstreamcli", "validate", "--no-net", metainfo)
    document = xml.etree.ElementTree.parse(metainfo)
    expect(document.findtext("launchable") == entries[0].name, f"{metainfo}: another entry")
    for binary in document.iter("binary"):
        expect((prefix / "bin" / binary.text).exists(), f"{metainfo}: no program {binary.text}")


def unit(prefix):
    path = prefix / "lib/systemd/user/kvscheduler.service"
    with tempfile.TemporaryDirectory() as runtime:
        said = run("systemd-analyze", "verify", "--user", "--man=no", path,
                   env=dict(os.environ, XDG_RUNTIME_DIR=runtime))
    expect(not said, said)
    start = f'ExecStart="{prefix}/bin/KVScheduler"\n'
    expect(start in path.read_text(), f"{path} starts another program")
    # Whatever else is set reaches the backups, as the unit says.
    settings = set(re.findall(r"(?m)^(\w+)=", path.read_text().partition("[Service]")[2]))
    expect(settings <= {"ExecStart", "Restart", "RestartSec", "KillMode", "OOMPolicy",
                        "TimeoutStopSec", "WantedBy"}, f"{path} sets {sorted(settings)}")


def manuals(prefix):
    """The pages are sound, and know every option, command and exit status of their programs."""
    run("mandoc", "-T", "lint", "-W", "warning", *(prefix / "share/man").glob("man*/*"))
    for name in COMMANDS:
        program = prefix / "bin" / name
        page = prefix / f"share/man/man1/{name}.1"
        # Of formatted text, to which a page strikes every letter of a name twice.
        text = re.sub(".\b", "", run("mandoc", "-T", "utf8", page))
        # What a list explains stands at this depth, and its explanations deeper.
        words = set(re.split(r"[\s,|]+", " ".join(re.findall(r"(?m)^ {5}\S.*", text))))
        statuses = re.findall(r"(?m)^ {2,4}(\d+)  ", run(program, "--help"))
        wanted = set(statuses).union(COMMANDS[name], *(
            options_of(program, command) for command in calls(name)))
        expect(wanted <= words, f"{page} does not tell of {sorted(wanted - words)}")


# What is typed, and what is offered for its last word; {home} holds a folder and the sets.
OFFERS = (
    ("KVScheduler --b", {"--bundle"}),
    ("KVScheduler --bundle {home}/sou", {"{home}/source files"}),
    ("kvbackup r", {"remove", "release", "run"}),
    ("kvbackup edit Docs --d", {"--daily", "--dest"}),
    ("kvbackup list --", {"--json", "--help"}),
    ("kvbackup add x --dest {home}/sou", {"{home}/source files"}),
    ("kvbackup add x --weekly t", {"tue", "thu"}),
    ("kvbackup add D", set()),
    ("kvbackup run D", {"Docs"}),
    ("kvbackup run -- -", {"-x"}),
    ("kvbackup hold Ann", {r"Ann\'s\ \"old\"\ \\mail"}),
    ("kvbackup hold 'Ann", {r"""Ann'\''s "old" \mail"""}),
    ("kvctl f", {"forecast"}),
    ("kvctl --json forecast --a", {"--absent", "--asleep", "--at"}),
    ("kvctl why D", {"Docs"}),
    ("kvbackup hold \"Ann", {r"""Ann's \"old\" \\mail"""}),
)
OFFER = r"""
source /usr/share/bash-completion/bash_completion
source "$1/$2"
shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMP_POINT=${#COMP_LINE} COMP_TYPE=9
_$1 "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}"
"""


def bash(prefix):
    folder = prefix / "share/bash-completion/completions"
    with tempfile.TemporaryDirectory() as home:
        environment = dict(os.environ, HOME=home, PATH=f"{prefix}/bin:{os.environ['PATH']}")
        source = pathlib.Path(home) / "source files"
        source.mkdir()
        for name in ("Docs", "Ann's \"old\" \\mail", "-x"):
            run("kvbackup", "add", "--source", source, "--dest", "/tmp/elsewhere", "--every", "2h",
                "--", name, env=environment)

        def offered(words):
            said = run("bash", "-c", OFFER, "bash", folder, *words, env=environment)
            return set(said.splitlines())

        for typed, wanted in OFFERS:
            got = offered(typed.format(home=home).split(" "))
            expect(got == {word.format(home=home) for word in wanted}, f"{typed}: {sorted(got)}")
        for words in [(name, *command) for name in COMMANDS for command in calls(name)]:
            got, wanted = offered((*words, "--")), options_of(prefix / "bin" / words[0], words[1:])
            if words[0] in TAKES_OPTIONS_ANYWHERE and words[1:]:
                wanted |= options_of(prefix / "bin" / words[0], ()) - {"--version"}
            expect(got == wanted, f"{words}: {sorted(got)}, not {sorted(wanted)}")


def zsh(prefix):
    """The functions are found, parse, and name every option."""
    folder = prefix / "share/zsh/site-functions"
    for name in COMMANDS:
        path = folder / f"_{name}"
        run("zsh", "-n", path)
        found = run("zsh", "-f", "-c", 'fpath=($1 $fpath); autoload -U compinit; compinit -D -u; '
                    'print -r -- $_comps[$2]', "zsh", folder, name)
        expect(found == f"_{name}\n", f"{path}: is not found for {name}")
        text = path.read_text()
        for command in calls(name):
            for word in options_of(prefix / "bin" / name, command).union(command):
                expect(word in text, f"{path}: does not know {word}")


def bundle(prefix):
    """The installed agent finds the whole installed bundle, which others cannot change."""
    for path in [prefix / "share/KVScheduler", *(prefix / "share/KVScheduler").rglob("*")]:
        expect(not path.stat().st_mode & 0o002, f"{path}: everybody may change it")
    probe = prefix / "share/KVScheduler/Scripts/zz-probe.js"
    with tempfile.TemporaryDirectory() as home:
        probe.write_text("""
            const picture = application.bundle.path + "/Images/100B13-22.png";
            const isWhole = application.bundle.identifier && application.delegate;
            application.terminate(isWhole && system.exists(picture) ? 7 : 8);""")
        try:
            environment = {key: value for key, value in os.environ.items()
                           if not key.startswith("XDG_") and "DISPLAY" not in key}
            done = subprocess.run([prefix / "bin/KVScheduler"], timeout=20,
                                  env=dict(environment, HOME=home, XDG_RUNTIME_DIR=home))
        finally:
            probe.unlink()
    expect(done.returncode == 7, f"the agent ended with {done.returncode}, not as the script says")


# What readelf says of a program or module that bears the flags of cmake/Hardening.cmake.
HARDENED = {
    "is position independent": r"Type: +DYN ",
    "has its tables made read-only": r"GNU_RELRO",
    "resolves all names at start": r"FLAGS\).* BIND_NOW|FLAGS_1\).* NOW",
    "has a stack that is no code": r"GNU_STACK .* RW +0x",
    "guards its stack": r"UND __stack_chk_fail",
}
COMPILED_WITH = ("-fstack-protector-strong", "-fstack-clash-protection")
ENDBR64 = b"\xf3\x0f\x1e\xfa"  # where an indirect jump may land


def hardening(prefix):
    programs = list((prefix / "bin").iterdir())
    modules = list(prefix.glob("lib/**/KVScheduler/*.so"))
    expect(programs and modules, f"{prefix} holds no programs or no modules")
    for path in programs + modules:
        said = run("readelf", "-W", "--file-header", "--program-headers", "--dynamic", "--dyn-syms",
                   path)
        for what, sign in HARDENED.items():
            expect(re.search(sign, said), f"{path}: nothing shows that it {what}")
        expect("TEXTREL" not in said, f"{path} changes its code as it is loaded")
        if path in programs:
            expect(re.search(r"FLAGS_1\).* PIE", said), f"{path} is no program for any address")
            checked = set(re.findall(r"UND (__\w+_chk)@", said))
            expect(checked, f"{path} calls no checked functions of the C library")
        if "X86-64" in said:
            expect(path.read_bytes().count(ENDBR64) > 100, f"{path} lets jumps land anywhere")
        # A stack that grows page by page shows only in what the compiler notes beside the code.
        for line in run("readelf", "--string-dump=.debug_str", path).splitlines():
            if "GNU C++" in line:
                missing = [flag for flag in COMPILED_WITH if flag not in line]
                expect(not missing, f"{path}: a source was compiled without {missing}: {line}")


CHECKS = {check.__name__: check
          for check in (desktop, unit, manuals, bash, zsh, bundle, hardening)}

if __name__ == "__main__":
    CHECKS[sys.argv[2]](pathlib.Path(sys.argv[1]).resolve())
