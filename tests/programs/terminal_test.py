# SPDX-License-Identifier: BSD-3-Clause
"""emporiumctl on a pseudo-terminal."""

import fcntl
import os
import pty
import re
import signal
import struct
import termios
import threading
import unicodedata

from program_fixture import ProgramTest, main, until

NOTES = "com.sample.notes"
WEATHER = "com.sample.weather"


def columns_of(text):
    return sum(0 if unicodedata.combining(letter) else
               2 if unicodedata.east_asian_width(letter) in "WF" else 1 for letter in text)


def screen_after(text):
    """The lines that a terminal shows after what a program has written, without colours."""
    lines, row = [""], 0
    for piece in re.findall("\033\\[[0-9]*[A-Za-z]|[\r\n]|[^\033\r\n]+", without_colours(text)):
        if piece == "\n":
            row += 1
            lines += [""] * (row == len(lines))
        elif piece[0] == "\033" and piece[-1] == "A":
            row -= int(piece[2:-1])
        elif piece == "\033[K":
            lines[row] = ""
        elif piece == "\033[J":
            lines[row:] = [""]
        elif piece != "\r":
            # The cursor is at the beginning of the line: every other piece is a whole line.
            lines[row] = piece
    return lines


def without_colours(text):
    return re.sub("\033\\[[0-9]*m", "", text)


class Terminal:
    """A program on a terminal of its own."""

    def __init__(self, test, arguments, columns=100, rows=24):
        self.ours, theirs = pty.openpty()
        self.resize(columns, rows)
        self.written = b""
        self.reader = threading.Thread(target=self.read)
        self.program = test.start(*arguments, stdout=theirs, start_new_session=True)
        os.close(theirs)
        self.reader.start()
        test.addCleanup(self.close)

    def resize(self, columns, rows=24):
        fcntl.ioctl(self.ours, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def read(self):
        while True:
            try:
                piece = os.read(self.ours, 65536)
            except OSError:
                return
            if not piece:
                return
            self.written += piece

    def text(self):
        return self.written.decode(errors="replace").replace("\r\n", "\n")

    def until_text(self, pattern):
        until(lambda: re.search(pattern, self.text()), f"{pattern!r} on the terminal")

    def end(self):
        """The exit status and all that was written."""
        status = self.program.status()
        self.reader.join()
        return status, self.text()

    def close(self):
        self.program.close()
        self.reader.join()
        os.close(self.ours)


class OnTerminal(ProgramTest):
    def setUp(self):
        super().setUp()
        self.environment["TERM"] = "xterm"

    def run_on_terminal(self, *arguments, **window):
        return Terminal(self, arguments, **window).end()


class TerminalTest(OnTerminal):
    def test_the_end_of_an_operation_is_an_ordinary_line(self):
        self.start_daemon()
        package = self.package()
        status, text = self.run_on_terminal("install", package)
        self.assertEqual(status, 0)
        self.assertEqual(text.count("install org.example.new: succeeded"), 1)
        self.assertTrue(text.endswith("\033[32m0 s  install org.example.new: succeeded\033[0m\n"),
                        text)

    def test_a_failure_is_red_and_whole_on_a_narrow_terminal(self):
        self.start_daemon()
        package = self.package()
        self.tell("FailOperation", "", 28)
        status, text = self.run_on_terminal("install", package, columns=20)
        self.assertEqual(status, 1)
        self.assertIn("\033[31m0 s  install org.example.new: failed (FileConflict: File conflict "
                      "found when installing the package)\033[0m\n", text)

    def test_a_table_heading_is_bold(self):
        self.start_daemon()
        _, text = self.run_on_terminal("list")
        self.assertTrue(text.startswith("\033[1mID "), text)

    def test_no_color_is_honoured_unless_it_is_empty(self):
        self.start_daemon()
        self.environment["NO_COLOR"] = "1"
        self.assertNotIn("\033[1m", self.run_on_terminal("list")[1])
        self.assertNotIn("\033[32m", self.run_on_terminal("remove", NOTES)[1])
        self.environment["NO_COLOR"] = ""
        self.assertIn("\033[1m", self.run_on_terminal("list")[1])

    def test_color_overrides_the_terminal_and_the_environment(self):
        self.start_daemon()
        self.assertNotIn("\033", self.run_on_terminal("list", "--color=never")[1])
        self.environment["NO_COLOR"] = "1"
        self.assertIn("\033[1m", self.run_on_terminal("list", "--color", "always")[1])
        self.assertIn("\033[1m", self.succeeds("list", "--color", "always"))
        self.assertNotIn("\033", self.succeeds("list", "--color", "auto"))

    def test_a_table_fits_the_terminal_in_columns(self):
        self.start_daemon()
        wide = "\u65e5\u672c\u8a9e\u306e\u30a2\u30d7\u30ea\u30b1\u30fc\u30b7\u30e7\u30f3"
        self.tell("AddPackage", f"('{wide}', '1', 'e\u0301e\u0301', '{wide}', @a{{sv}} {{}})", "false")
        self.environment["NO_COLOR"] = "1"
        for width in (40, 41, 60):
            _, text = self.run_on_terminal("list", columns=width)
            lines = text.splitlines()
            self.assertEqual(len(lines), 8)
            for line in lines:
                self.assertLessEqual(columns_of(line), width, line)
            self.assertEqual(columns_of(lines[0]), width, "the table is no narrower than the terminal")
            self.assertIn("\u2026", text)
        lines = self.run_on_terminal("list", columns=200)[1].splitlines()
        starts = {columns_of(line[:re.search(r"\S+\s+", line).end()]) for line in lines}
        self.assertEqual(len(starts), 1, "the second column begins at the same place in all lines")

    def test_a_terminal_that_is_not_utf_8_gets_ascii(self):
        self.start_daemon("--step-ms", "0")
        self.environment["NO_COLOR"] = "1"
        self.tell("AddPackage", "('gr\u011bn', '1', 's', 'c', @a{sv} {})", "false")
        for arguments, wanted in ((["list"], "\ngr\\\\u011bn +1 "), (["list", "--json"], "gr\\\\u011bn"),
                                  (["remove", "gr\u011bn"], "remove gr\\\\u011bn: succeeded")):
            self.environment["LC_ALL"] = "C"
            _, text = self.run_on_terminal(*arguments, columns=200)
            self.assertTrue(text.isascii(), text)
            self.assertRegex(text, wanted)
        _, text = self.run_on_terminal("list", columns=20)
        self.assertTrue(text.isascii(), text)
        self.assertIn("~", text)

    def test_json_has_neither_colours_nor_limits(self):
        self.start_daemon()
        _, text = self.run_on_terminal("list", "--json", columns=20)
        self.assertNotIn("\033", text)
        self.assertEqual(len(text.splitlines()), 1)

    def test_a_dumb_terminal_gets_plain_lines(self):
        self.start_daemon()
        for term in ("dumb", ""):
            self.environment["TERM"] = term
            _, text = self.run_on_terminal("remove", NOTES if term else WEATHER)
            self.assertNotIn("\033", text)
            self.assertRegex(text, "remove com.sample.[a-z]*: 10\n")

    def test_quiet_prints_nothing_on_a_terminal_either(self):
        self.start_daemon()
        self.assertEqual(self.run_on_terminal("remove", "--quiet", NOTES), (0, ""))

    def test_two_hundred_operations_cost_kilobytes(self):
        self.start_daemon("--packages", "200")
        ids = self.succeeds("list", "--no-header", "--columns", "id").split()
        self.assertEqual(len(ids), 200)
        status, text = self.run_on_terminal("remove", *ids)
        self.assertEqual(status, 0)
        self.assertLess(len(text), 200_000)
        for package in ids:
            self.assertEqual(text.count(f"remove {package}: succeeded"), 1)


class LiveTest(OnTerminal):
    # No operation ends by itself.
    simulator_options = ["--step-ms", "100000"]

    def end_operations(self, *packages):
        for line in self.succeeds("operations", "--active", "--no-header",
                                  "--columns", "uuid,package").splitlines():
            uuid, package = line.split()
            if package in packages:
                self.emit("OperationStatusChanged", f"(('{uuid}', '{package}', 2, 100, 0),)")

    def test_a_running_operation_shows_its_target_and_the_elapsed_time(self):
        self.start_daemon()
        terminal = Terminal(self, ["remove", NOTES])
        terminal.until_text(f"\n1 s  remove {NOTES}|\033\\[K1 s  remove {NOTES}")
        self.end_operations(NOTES)
        self.assertEqual(terminal.end()[0], 0)

    def test_the_end_stands_above_the_running_ones(self):
        self.start_daemon()
        terminal = Terminal(self, ["remove", NOTES, WEATHER])
        terminal.until_text(f"0 s  remove {WEATHER}")
        self.end_operations(NOTES)
        terminal.until_text(f"remove {NOTES}: succeeded\033\\[0m\n[0-9]+ s  remove {WEATHER}")
        self.end_operations(WEATHER)
        self.assertEqual(terminal.end()[0], 0)

    def test_each_operation_is_on_the_screen_once(self):
        self.start_daemon()
        terminal = Terminal(self, ["remove", NOTES, WEATHER])

        def shown():
            """The lines with an elapsed time, without it."""
            lines = [re.fullmatch("[0-9]+ s  (.*)", line) for line in screen_after(terminal.text())]
            return [line[1] for line in lines if line]
        terminal.until_text(f"[1-9][0-9]* s  remove {WEATHER}")
        until(lambda: shown() == [f"remove {NOTES}", f"remove {WEATHER}"], "both operations")
        self.end_operations(NOTES)
        until(lambda: shown() == [f"remove {NOTES}: succeeded", f"remove {WEATHER}"], "one of each")
        self.end_operations(WEATHER)
        self.assertEqual(terminal.end()[0], 0)
        self.assertEqual(shown(), [f"remove {NOTES}: succeeded", f"remove {WEATHER}: succeeded"])

    def test_a_refusal_is_printed_while_others_run(self):
        self.start_daemon()
        terminal = Terminal(self, ["remove", "missing.pkg", NOTES])
        terminal.until_text(f"0 s  remove {NOTES}")
        self.end_operations(NOTES)
        self.assertEqual(terminal.end()[0], 1)
        self.assertEqual(terminal.program.errors(),
                         "emporiumctl: missing.pkg: PackageNotExist: The package does not exist\n")

    def test_what_runs_fits_the_window(self):
        self.start_daemon("--packages", "30")
        ids = self.succeeds("list", "--no-header", "--columns", "id").split()
        terminal = Terminal(self, ["remove", *ids], rows=6, columns=20)
        terminal.until_text("\nand 26 more\n")
        terminal.program.signal(signal.SIGINT)
        status, text = terminal.end()
        self.assertEqual(status, 4)
        self.assertNotIn("\033[6A", text)
        live = re.findall("^(?:\033\\[K)?([0-9]+ s  .*)$", text, re.MULTILINE)
        self.assertTrue(live)
        for line in live:
            self.assertLessEqual(columns_of(without_colours(line)), 20, line)

    def test_a_window_that_changes_is_drawn_anew(self):
        self.start_daemon()
        terminal = Terminal(self, ["remove", NOTES], columns=100)
        terminal.until_text(f"0 s  remove {NOTES}")
        terminal.resize(12)
        terminal.program.signal(signal.SIGWINCH)
        terminal.until_text("[0-9] s  remove\u2026")
        terminal.program.signal(signal.SIGINT)
        self.assertEqual(terminal.end()[0], 4)

    def test_nothing_of_a_daemon_reaches_the_terminal_unescaped(self):
        evil = "a\033[2Jb\u009b31m\u202ec\u200bd\u2028e\U000e0041f\u007fg"
        literal = evil.encode("unicode_escape").decode().replace("\\x9b", "\\u009b") \
            .replace("\\x1b", "\\u001b").replace("\\x7f", "\\u007f")
        self.start_daemon()
        self.tell("AddPackage", f"('{literal}', '{literal}', 's', 'c', @a{{sv}} {{}})", "false")
        self.environment["NO_COLOR"] = "1"
        forbidden = re.compile("[\0-\x09\x0b-\x1f\x7f-\x9f\u202e\u200b\u2028\U000e0041]")
        terminals = [Terminal(self, arguments, columns=200)
                     for arguments in (["list"], ["info", evil], ["list", "--json"],
                                       ["info", f"missing {evil}"], ["install", f"/{evil}"],
                                       [f"--{evil}"], ["watch"])]
        self.until_called("GetAllProperties", 6)
        self.emit("PackageInstalled", f"(('{literal}', '1', 's', 'c', @a{{sv}} {{}}),)")
        terminals[-1].until_text("PackageInstalled.*\n")
        terminals[-1].program.signal(signal.SIGINT)
        for terminal in terminals:
            _, text = terminal.end()
            shown = re.sub("\033\\[([0-9]*A\r\033\\[J|K|[0-9]*A)|\r", "", text)
            for output in (shown, terminal.program.errors()):
                self.assertNotRegex(output, forbidden)
        self.assertIn("\\x1b[2J", terminals[0].text())
        self.assertIn("\\u001b[2J", terminals[2].text())


main()
