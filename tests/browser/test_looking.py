#!/usr/bin/python3
"""Kills, the log, and what a bug report needs."""

import json
import re
import socket
import unittest

from installation import alive, killed
from page_case import LOG_LINES, PageCase, nice_line, tearDownModule  # noqa: F401


class Kills(PageCase):
    def prepare(self):
        super().prepare()
        self.installation.put_report(1, killed("WeChat", 600, 160), alive("SpringBoard", 300, 210))
        self.installation.put_report(30, killed("Photos", 210), killed("kbd", 60, reason="per-process-limit"))
        self.damaged = self.installation.reports / "JetsamEvent-2026-01-02-030405.ips"
        self.damaged.write_text("cut sho")

    def kills(self):
        """The rows without their times."""
        return [
            re.sub(r" \| (\d+ hours? ago|yesterday)| \w+ \d+, \d\d:\d\d ·", "", text)
            for text in self.texts(".kill")
        ]

    def test_each_with_its_reason(self):
        self.tap("Kills")
        self.expect(".lead", "3 kills in 3 reports of the system")
        short = "memory was short, and it was in the lowest band that had anything to give"
        of_wechat = (
            f"W | WeChat | {short} | memory was short; held at 160, everything below had gone already |"
            " memory 600 MB · at most 600 MB · band 160 home · suspended | All processes then"
        )
        kills = [
            of_wechat,
            f"P | Photos | {short} | memory 210 MB · at most 210 MB · band 0 idle · suspended | All processes then",
            "K | kbd | it went over its own hard limit | over the system's limit; you set none for it |"
            " memory 60 MB · at most 60 MB · band 0 idle · suspended | All processes then",
        ]
        self.until(self.kills, kills)
        self.expect(
            ".section h2",
            "When, and how much memory it had",
            "The largest kill of each process",
            "Newest first",
            "Reports that could not be read",
        )
        self.expect(
            ".problem-row",
            f"{self.damaged.name} {self.damaged} is no report, or a damaged one; it is left out",
        )
        self.tap("WeChat")
        self.expect(".head-name", "WeChat")
        self.until(self.kills, [of_wechat])
        self.tap("Now")
        self.expect(
            ".target-card[href$=xin]",
            "W | WeChat | com.tencent.xin | held | 60 MB | of 2,048 MB | Band 160 home | "
            + f"Ended 1 hour ago: {short}",
        )

    def test_no_report(self):
        for report in self.installation.reports.iterdir():
            report.unlink()
        self.tap("Kills")
        self.expect(
            ".card", "There are no reports: the system has ended nothing for its memory, or has removed them."
        )


class Log(PageCase):
    def test_filtered_in_both_languages(self):
        self.tap("Log")
        self.expect(".count", f"The last {LOG_LINES} lines; new ones come by themselves")
        self.phone.choose("Category", "nice")
        of_kbd = nice_line(wanted=12)
        self.expect(".log-text", nice_line(wanted=0), of_kbd)
        self.phone.choose("Target", "kbd")
        self.expect(".log-text", of_kbd)
        self.phone.choose("Category", "All categories")
        self.phone.type("input[type=search]", "STARTED")
        kbd = self.installation.pids["kbd"]
        self.expect(".log-text", f"kbd started, PID {kbd}")
        self.phone.type("input[type=search]", "nothing like this")
        self.expect(".log-box", "No line fits. Choose another category, target or text.")
        self.tap("中文")
        self.expect("h1", "日志")
        self.phone.type("input[type=search]", "启动")
        self.expect(".log-text", f"目标: kbd 已启动 PID: {kbd}")
        self.expect(".log-category", "进程")

    def test_new_lines_come_by_themselves(self):
        self.tap("Log")
        self.phone.choose("Target", "kbd")
        self.phone.choose("Category", "process")
        started = f"kbd started, PID {self.installation.pids['kbd']}"
        self.expect(".log-text", started)
        self.installation.quit("kbd")
        self.installation.control("apply")
        self.expect(".log-text", started, "kbd exited")


class Doctor(PageCase):
    def test_all_in_order(self):
        self.tap("Doctor")
        self.expect(".all-well", "✓ | All in order | The installation has no finding.")
        self.expect(".facts dt", "Daemon", "System", "Root", "Settings", "State", "Log", "Rights")
        self.assertIn(f"{self.installation.root}", self.phone.texts(".facts dd"))

    def test_report_keeps_private_things(self):
        self.installation.launch("Diary", 20, "org.example.diary", "Secrets")
        self.installation.launch("QQ", 20, "com.tencent.mqq")
        self.installation.control("set", "Neverseen", "NiceValue=5")
        self.installation.control("set", "com.tencent.xin", "Remark=for my mother")
        self.installation.put_report(1, killed("Diary", 100))
        self.tap("Doctor", "Show the report")
        self.expect(
            ".sheet-body > p", "Read it before you pass it on. Apps are called app-1, app-2 and so on."
        )
        report = self.phone.driver.execute_script("return document.querySelector('textarea').value")
        self.assertIn("## doctor (0)", report)
        self.assertIn('"target": "kbd"', report)
        self.assertIn('"app-1"', report)
        key = self.installation.address().split("=")[1]
        private = [
            socket.gethostname(),
            key,
            "com.tencent.xin",
            "WeChat",
            "Diary",
            "org.example.diary",
            "my mother",
            "Secrets",
            "QQ",
            "Neverseen",
        ]
        self.assertEqual(
            [word for word in private if re.search(rf"(?<![\w-]){re.escape(word)}(?![\w-])", report)], []
        )

    def test_export_is_what_is_stored(self):
        self.tap("Doctor", "Show the settings")
        self.expect(".sheet-body > p", "All settings as they are stored, with your remarks.")
        text = self.phone.driver.execute_script("return document.querySelector('textarea').value")
        self.assertEqual(json.loads(text), {"Enabled": True, "AppConfigs": self.installation.targets()})


if __name__ == "__main__":
    unittest.main()
