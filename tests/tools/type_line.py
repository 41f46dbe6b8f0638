# Types into an interactive shell as people do: the beginning of a line, the Tab key, and what makes the shell print the
# words that it now has. One line of output for each line that is typed.
#
# usage: type_line.py bash|zsh BEGINNING...
import os
import pathlib
import pty
import re
import select
import sys

COMPLETIONS = pathlib.Path(__file__).resolve().parents[2] / "completions"
SHELLS = {
    "bash": (["bash", "--norc", "--noprofile", "-i"], f"bind 'set enable-bracketed-paste off'; source {COMPLETIONS}/faxtray.bash"),
    "zsh": (["zsh", "-f", "-i"], f"fpath=({COMPLETIONS} $fpath); autoload -U compinit; compinit -u -D; bindkey -e"),
}
TAB, HOME, END = "\t", "\x01", "\x05"


def read_until(terminal, pattern):
    seen = ""
    while not (found := re.search(pattern, seen)):
        if not select.select([terminal], [], [], 60)[0]:
            sys.exit(f"{pattern} does not come, only {seen!r}")
        seen += os.read(terminal, 65536).decode(errors="replace")
    return found


def main(shell, *beginnings):
    command, start = SHELLS[shell]
    pid, terminal = pty.fork()
    if pid == 0:
        os.environ.update(TERM="dumb", PS1="> ", HISTFILE="/dev/null")
        os.execvp(command[0], command)
    os.write(terminal, f"{start}; echo ready$((1))\n".encode())
    read_until(terminal, "ready1")
    for beginning in beginnings:
        os.write(terminal, f"{beginning}{TAB}{HOME}printf '<%s>' {END}; echo done$((1))\n".encode())
        print(read_until(terminal, r"\n(<[^\n]*>)done1")[1])
    os.write(terminal, b"exit\n")
    os.waitpid(pid, 0)


main(*sys.argv[1:])
