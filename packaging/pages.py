#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# pages.py KIND VERSION <TABLE: what a program says of its options (--option-table) as its manual page (KIND man, made by scdoc)
# or as its completions for a shell (KIND bash, zsh, fish).
import re
import subprocess
import sys
import textwrap

FILES = ("INPUT", "OUTPUT", "FILE")  # names and types that stand for a file


class Program:
    def __init__(self, lines):
        self.commands = {"": ""}  # meaning by path, in the program's order
        self.options, self.positionals, self.footers = {}, {}, {}
        for line in lines:
            kind, *fields = [part.replace("\\n", "\n") for part in line.rstrip("\n").split("\t")]
            if kind == "program":
                self.name, self.description = fields
            elif kind == "command":
                self.commands[fields[0]] = fields[1]
            elif kind == "option":
                self.options.setdefault(fields[0], []).append((fields[1].split(","), *fields[2:]))
            elif kind == "positional":
                self.positionals.setdefault(fields[0], []).append(fields[1:])
            elif kind == "footer":
                self.footers[fields[0]] = fields[1]

    def words(self, path):
        """What may stand next behind the words of `path`, with its meaning, and whether files may."""
        depth = len(path.split())
        found = [(command.split()[depth], meaning) for command, meaning in self.commands.items()
                 if command and command.split()[:depth] == path.split() and len(command.split()) == depth + 1]
        if any(name.startswith("NAME=VALUE") for name, _, _ in self.positionals.get(path, [])):
            found += [(name + "=", meaning) for name, meaning in self.settings(path)]
        if any(name.startswith("NAME") and "=" not in name for name, _, _ in self.positionals.get(path, [])):
            found += [setting for other in self.footers for setting in self.settings(other)]
        for names, _, _, meaning in self.options.get(path, []):
            found += [(name, meaning) for name in names]
        return found, any(name.removesuffix("...") in FILES for name, _, _ in self.positionals.get(path, []))

    def settings(self, path):
        return re.findall(r"^  (\w+) +(\[.*)$", self.footers.get(path, ""), re.M)

    def valued(self, path):
        """The options that take a value: name, values that are known, whether it is a file."""
        return [(name, kind.split("|") if "|" in kind else [], kind in FILES)
                for names, kind, _, _ in self.options.get(path, []) if kind for name in names]


# ---- the manual page ----------------------------------------------------------------------------------------------------


def escaped(text):
    return re.sub(r"([\\_*#`|\[\]~<>]|^-)", r"\\\1", text)


# In lines that the page's own form, which doubles some characters, keeps below 80.
def wrapped(text, indent=""):
    return "\n".join(indent + escaped(line) for line in textwrap.wrap(text.replace("\n", " "), 66))


def options_of(program, path):
    out = ""
    for name, _, meaning in program.positionals.get(path, []):
        out += f"_{escaped(name)}_\n{wrapped(meaning, chr(9))}\n\n"
    for names, kind, default, meaning in program.options.get(path, []):
        head = ", ".join(f"*{escaped(name)}*" for name in names) + (f" _{escaped(kind)}_" if kind else "")
        if default:
            meaning += f" (default: {default})"
        out += f"{head}\n{wrapped(meaning, chr(9))}\n\n"
    if path in program.footers:
        out += "```\n" + program.footers[path].strip("\n") + "\n```\n\n"
    return out


def synopsis(program, path):
    words = " ".join(filter(None, [program.name, path]))
    arguments = " ".join(f"_{escaped(name)}_" if required == "1" else f"\\[_{escaped(name)}_\\]"
                         for name, required, _ in program.positionals.get(path, []))
    return f"*{escaped(words)}* \\[_OPTIONS_\\] {arguments}".rstrip()


def page(program, version):
    summary = re.split(r"[.:](?:\s|$)|;|, which", program.description.replace("\n", " "))[0]
    leaves = [path for path in program.commands
              if not any(other.startswith(path + " ") for other in program.commands) and (path or len(program.commands) == 1)]
    out = f"{program.name}(1) \"quorel {version}\" \"QUOREL\"\n\n"
    out += "# NAME\n\n" + wrapped(f"{program.name} - {summary[0].lower()}{summary[1:]}") + "\n\n"
    out += "# SYNOPSIS\n\n" + "++\n".join(synopsis(program, path) for path in leaves) + "\n\n"
    out += "# DESCRIPTION\n\n" + wrapped(program.description) + "\n\n# OPTIONS\n\n" + options_of(program, "")
    for path in program.commands:
        if path:
            out += f"# {path.upper()}\n\n{wrapped(program.commands[path])}\n\n" + options_of(program, path)
    others = [name for name in ("quorel-clean", "quorel-control", "quorel-hrtf", "quorel-live", "quorel-plot", "quorel-render") if name != program.name]
    out += "# SEE ALSO\n\n" + ", ".join(f"*{name}*(1)" for name in others) + "\n\n"
    rights = ("The QUOREL authors, under the MIT licence. The built-in responses are designed from the HRTF measurement of a "
              "KEMAR dummy head by Bill Gardner and Keith Martin, MIT Media Lab, 1994.")
    out += f"# COPYRIGHT\n\n{wrapped(rights)}\n"
    roff = subprocess.run(["scdoc"], input=out, capture_output=True, text=True, check=True).stdout
    roff = re.sub(r"^\.TH \"[^\"]*\"", lambda head: head[0].upper(), roff, flags=re.M)
    # scdoc puts paragraph macros where they have no effect, which mandoc tells.
    roff = re.sub(r"(\.P\n)+(?=\.SH|\.RE\n|\Z)", "", roff)
    roff = re.sub(r"(\.SH [^\n]*\n|\.RS 4\n|\.TH [^\n]*\n)\.P\n", r"\1", roff)
    return re.sub(r"\.RE\n(?!\.SH|\Z)", ".RE\n.P\n", roff)


# ---- completions ----------------------------------------------------------------------------------------------------------


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def first_line(text):
    return text.split("\n")[0]


# The words before the one that is completed, less options, are the longest path that is a command.
def find_path(program, words):
    cases = "".join(f"            {quoted(path)}) path=$next ;;\n" for path in program.commands if path)
    return f"""    local path= next word
    for word in {words}; do
        next="${{path:+$path }}$word"
        case $next in
{cases}        esac
    done
""" if cases else "    local path=\n"


def bash(program):
    function = "_" + program.name.replace("-", "_")
    out = f"{function}()\n{{\n    local cur=${{COMP_WORDS[COMP_CWORD]}} prev=${{COMP_WORDS[COMP_CWORD - 1]}}\n    COMPREPLY=()\n"
    out += find_path(program, '"${COMP_WORDS[@]:1:COMP_CWORD - 1}"') + "    case $path:$prev in\n"
    for path in program.commands:
        for name, values, file in program.valued(path):
            reply = f'$(compgen -W {quoted(" ".join(values))} -- "$cur")' if values else '$(compgen -f -- "$cur")' if file else ""
            out += f"        {quoted(path + ':' + name)}) COMPREPLY=({reply}); return ;;\n"
    out += "    esac\n    case $path in\n"
    for path in program.commands:
        words, files = program.words(path)
        text = quoted(" ".join(word for word, _ in words))
        out += f"        {quoted(path)}) COMPREPLY=($(compgen -W {text} -- \"$cur\")"
        out += " $(compgen -f -- \"$cur\")) ;;\n" if files else ") ;;\n"
    out += "    esac\n    [[ ${COMPREPLY[*]} == *= ]] && compopt -o nospace 2>/dev/null\n    return 0\n}\n"
    return out + f"complete -o filenames -F {function} {program.name}\n"


def zsh(program):
    out = f"#compdef {program.name}\n" + find_path(program, '"${(@)words[2,CURRENT-1]}"').replace("    local", "local", 1)
    out += "local -a found\ncase $path:$words[CURRENT-1] in\n"
    out = out.replace("path", "place")  # zsh has a path of its own
    for path in program.commands:
        for name, values, file in program.valued(path):
            reply = "compadd -- " + " ".join(values) if values else "_files" if file else "_message value"
            out += f"    {quoted(path + ':' + name)}) {reply}; return ;;\n"
    out += "esac\ncase $place in\n"
    for path in program.commands:
        words, files = program.words(path)
        for kind, dashed in (("words", False), ("options", True)):
            items = " ".join(quoted(word.replace(":", "\\:") + ":" + first_line(meaning).replace(":", "\\:"))
                             for word, meaning in words if word.startswith("-") == dashed)
            start = "        " if dashed else f"    {quoted(path)}) "
            open_ended = " -S ''" if "=:" in items else ""
            out += f"{start}found=({items}); _describe {'-o ' if dashed else ''}{kind} found{open_ended}\n"
        out += ("        _files\n" if files else "") + "        ;;\n"
    return out + "esac\n"


def fish(program):
    out = ""
    for path in program.commands:
        words, files = program.words(path)
        inner = [word for word, _ in words if not word.startswith("-")]
        conditions = [f"__fish_seen_subcommand_from {word}" for word in path.split()]
        if any(other.startswith(path + " ") or (not path and other) for other in program.commands):
            conditions.append("not __fish_seen_subcommand_from " + " ".join(inner))
        where = f"-n {quoted('; and '.join(conditions))} " if conditions else ""
        if not files:
            out += f"complete -c {program.name} {where}-f\n"
        for word, meaning in words:
            if not word.startswith("-"):
                out += f"complete -c {program.name} {where}-a {quoted(word)} -d {quoted(first_line(meaning))}\n"
        for names, kind, _, meaning in program.options.get(path, []):
            flags = " ".join("-l " + name[2:] if name.startswith("--") else "-s " + name[1:] for name in names)
            value = "" if not kind else " -r" if kind in FILES else " -x" + \
                (f" -a {quoted(kind.replace('|', ' '))}" if "|" in kind else "")
            out += f"complete -c {program.name} {where}{flags}{value} -d {quoted(first_line(meaning))}\n"
    return out


def main():
    kind, version = sys.argv[1:]
    program = Program(sys.stdin)
    sys.stdout.write(page(program, version) if kind == "man" else {"bash": bash, "zsh": zsh, "fish": fish}[kind](program))


main()
