# SPDX-License-Identifier: MIT
# completing.py PAGES: each shell completes a line of quorel-control and of quorel-render from the files in the folder.
import os
import pty
import select
import shutil
import subprocess
import sys
import tempfile
import time

pages = os.path.abspath(sys.argv[1])
home = tempfile.mkdtemp()
environment = {"HOME": home, "PATH": "/usr/bin:/bin", "TERM": "dumb", "XDG_CONFIG_HOME": home, "XDG_DATA_HOME": home}
open(f"{home}/sound.wav", "w").close()

# A line, words that must be among its completions, and one that must not.
CASES = [
    ("quorel-control ", ["set", "get", "hrtf", "--version"][:3], "load"),
    ("quorel-control hrtf ", ["load", "clear"], "set"),
    ("quorel-control set Rev", ["Reverb="], "Settings="),
    ("quorel-control levels --w", ["--watch"], "--seconds"),
    ("quorel-render --re", ["--report"], "--tail"),
    ("quorel-render sou", ["sound.wav"], "--tail"),
    ("quorel-live --bypass ", ["on", "off"], "--list"),
]


def by_bash(line):
    name = line.split()[0]
    script = f"""source {pages}/{name}.bash
COMP_WORDS=({line}); [[ '{line}' == *' ' ]] && COMP_WORDS+=('')
COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); cd {home}
$(complete -p {name} | sed 's/.*-F \\([^ ]*\\) .*/\\1/'); printf '%s\\n' "${{COMPREPLY[@]}}"
complete -p {name} >/dev/null"""
    return subprocess.run(["bash", "--norc", "-c", script], env=environment, capture_output=True, text=True, check=True).stdout


def by_fish(line):
    name = line.split()[0]
    script = f"source {pages}/{name}.fish; cd {home}; complete -C '{line}'"
    found = subprocess.run(["fish", "--no-config", "-c", script], env=environment, capture_output=True, text=True, check=True).stdout
    return "\n".join(each.split("\t")[0] for each in found.splitlines())


def by_zsh(line):
    """Types the line and a tabulator twice, and reads until every word has come or twenty seconds are over."""
    functions = f"{home}/functions"
    os.makedirs(functions, exist_ok=True)
    for file in os.listdir(pages):
        if file.endswith(".zsh"):
            shutil.copy(f"{pages}/{file}", f"{functions}/_{file[:-4]}")
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(home)
        os.execvpe("zsh", ["zsh", "-f", "-i"], environment)
    begin = (f"fpath=({functions} $fpath); autoload -U compinit; compinit -u -D; unsetopt menu_complete list_ambiguous; "
             "setopt auto_list no_always_last_prompt; PS1=''; print rea''dy\n")
    text = ""

    def read_until(done):
        nonlocal text
        end = time.monotonic() + 20
        while not done() and time.monotonic() < end:
            if select.select([terminal], [], [], 0.1)[0]:
                try:
                    text += os.read(terminal, 65536).decode(errors="replace").replace("\a", "")
                except OSError:
                    break

    os.write(terminal, begin.encode())
    read_until(lambda: "ready" in text)
    text = ""
    os.write(terminal, line.encode() + b"\t\t")
    wanted = next(words for case, words, _ in CASES if case == line)
    read_until(lambda: all(word in text for word in wanted))
    os.kill(child, 9)
    os.waitpid(child, 0)
    os.close(terminal)
    return text


failures = 0
for shell, complete in (("bash", by_bash), ("fish", by_fish), ("zsh", by_zsh)):
    for line, words, other in CASES:
        if not os.path.exists(f"{pages}/{line.split()[0]}.{shell}"):
            continue
        found = complete(line)
        missing = [word for word in words if word not in found]
        if missing or (shell != "zsh" and other in found.split()):
            print(f"{shell}: {line!r} completes to {found!r}; missing {missing}, or with {other}")
            failures += 1
shutil.rmtree(home)
sys.exit(failures > 0)
