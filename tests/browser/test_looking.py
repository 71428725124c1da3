#!/usr/bin/python3
"""Kills, the log, and what a bug report needs."""

import json
import socket
import unittest

from installation import alive, killed
from page_case import PageCase, tearDownModule  # noqa: F401


class Kills(PageCase):
    def prepare(self):
        super().prepare()
        self.installation.put_report(1, killed("WeChat", 600, 160), alive("SpringBoard", 300, 210))
        self.installation.put_report(30, killed("Photos", 210), killed("kbd", 60, reason="per-process-limit"))
        (self.installation.reports / "JetsamEvent-2026-01-02-030405.ips").write_text("cut sho")

    def test_each_with_its_reason(self):
        self.tap("Kills")
        self.expect(".lead", "3 kills in 3 reports of the system")
        self.expect(".kill", "x")
        self.expect(".section h2", "x")
        self.expect(".problem-row", "x")
        self.tap("WeChat")
        self.expect(".head-name", "WeChat")
        self.expect(".section:last-child .kill", "x")
        self.tap("Now")
        self.expect(".target-card[href$=xin]", "x")

    def test_no_report(self):
        for report in self.installation.reports.iterdir():
            report.unlink()
        self.tap("Kills")
        self.expect(".card", "There are no reports: the system has ended nothing for its memory, or has removed them.")


class Log(PageCase):
    def test_filtered_in_both_languages(self):
        self.tap("Log")
        self.expect(".count", "The last 20 lines; new ones come by themselves")
        self.phone.choose("Category", "nice")
        self.expect(".log-text", "x")
        self.phone.choose("Target", "kbd")
        self.expect(".log-text", "x")
        self.phone.choose("Category", "All categories")
        self.phone.type("input[type=search]", "STARTED")
        self.expect(".log-text", "x")
        self.phone.type("input[type=search]", "nothing like this")
        self.expect(".log-box", "No line fits. Choose another category, target or text.")
        self.tap("中文")
        self.expect("h1", "日志")
        self.phone.type("input[type=search]", "启动")
        self.expect(".log-text", "x")
        self.expect(".log-category", "x")

    def test_new_lines_come_by_themselves(self):
        self.tap("Log")
        self.phone.choose("Target", "kbd")
        self.phone.choose("Category", "process")
        self.expect(".log-text", "x")
        self.installation.quit("kbd")
        self.installation.control("apply")
        self.expect(".log-text", "x")


class Doctor(PageCase):
    def test_all_in_order(self):
        self.tap("Doctor")
        self.expect(".all-well", "x")
        self.expect(".edit", "x")

    def test_report_keeps_private_things(self):
        self.installation.launch("Diary", 20, "org.example.diary")
        self.installation.control("set", "com.tencent.xin", "Remark=for my mother")
        self.installation.put_report(1, killed("Diary", 100))
        self.tap("Doctor", "Show the report")
        self.expect(".sheet-body > p", "Read it before you pass it on. Apps are called app-1, app-2 and so on.")
        report = self.phone.driver.execute_script("return document.querySelector('textarea').value")
        self.assertIn("## doctor (0)", report)
        self.assertIn('"target": "kbd"', report)
        self.assertIn('"app-1"', report)
        key = self.installation.address().split("=")[1]
        private = [socket.gethostname(), key, "com.tencent.xin", "WeChat", "Diary", "org.example.diary", "my mother"]
        self.assertEqual([word for word in private if word in report], [])

    def test_export_is_what_is_stored(self):
        self.tap("Doctor", "Show the settings")
        self.expect(".sheet-body > p", "All settings as they are stored, with your remarks.")
        text = self.phone.driver.execute_script("return document.querySelector('textarea').value")
        self.assertEqual(json.loads(text), {"Enabled": True, "AppConfigs": self.installation.targets()})


if __name__ == "__main__":
    unittest.main()
