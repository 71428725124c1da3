"""Processes that end with the test. Where the system allows it, they see only each other."""

import os
import shlex
import signal
import subprocess

OWN_PROCESSES = ["unshare", "--fork", "--pid", "--mount-proc", "--kill-child"]


def namespace():
    """The command that starts another in a process namespace; nothing where that is not allowed. There an
    ordinary user is root, to whom alone the model of the kernel gives what root has on a phone."""
    command = [*OWN_PROCESSES, *([] if os.geteuid() == 0 else ["--user", "--map-root-user"])]
    allowed = subprocess.run([*command, "true"], capture_output=True, check=False).returncode == 0
    return command if allowed else []


class Machine:
    """A shell that starts and ends processes. They share its namespace, or else its process group."""

    def __init__(self):
        self.shell = subprocess.Popen(
            [*namespace(), "sh"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
            start_new_session=True,
        )

    def ask(self, command):
        """Runs a command of the shell that prints one line, and returns the line."""
        self.shell.stdin.write(command + "\n")
        self.shell.stdin.flush()
        return self.shell.stdout.readline().rstrip("\n")

    def start(self, *words, output="/dev/null"):
        """Starts a program, and returns its process id as the other processes see it."""
        return int(
            self.ask(f"{shlex.join(map(str, words))} </dev/null >{shlex.quote(str(output))} 2>&1 & echo $!")
        )

    def stop(self, pid):
        self.ask(f"kill -KILL {pid}; wait {pid} 2>/dev/null; echo")

    def run(self, output, *words):
        """Runs a program to its end. Returns its exit status; what it prints goes to the file."""
        return int(
            self.ask(f"{shlex.join(map(str, words))} </dev/null >{shlex.quote(str(output))} 2>&1; echo $?")
        )

    def end(self):
        os.killpg(self.shell.pid, signal.SIGKILL)
        self.shell.wait()
        self.shell.stdin.close()
        self.shell.stdout.close()
