#!/usr/bin/python3
"""The pictures in the documents. VORLATCH_WRITE_SCREENSHOTS=1 writes them to docs/screenshots."""

import io
import os
import unittest

from installation import ROOT, alive, killed
from page_case import PageCase, tearDownModule  # noqa: F401

FOLDER = ROOT / "docs" / "screenshots"
WIDTH, HEIGHT = 430, 860
COLOURS = 128
APPS = {"WeChat": ("com.tencent.xin", 320), "Photos": ("com.apple.mobileslideshow", 210),
        "MobileSafari": ("com.apple.mobilesafari", 180), "Notes": ("com.apple.mobilenotes", 64)}  # fmt: skip
DAEMONS = {"SpringBoard": 90, "mediaserverd": 42, "kbd": 24, "dasd": 12}


class Pictures(PageCase):
    def prepare(self):
        for name, (identifier, used_mb) in APPS.items():
            self.installation.launch(name, used_mb, identifier)
        for name, used_mb in DAEMONS.items():
            self.installation.launch(name, used_mb)
        self.installation.set_targets({
            "com.tencent.xin": {"JetsamPriority": 160, "MemLimitActive": 1024, "Remark": "chats"},
            "com.apple.mobilenotes": {"JetsamPriority": 100, "MemLimitActive": 200, "MemLimitInactive": 200},
            "dasd": {"NiceValue": 12, "CheckInterval": 30},
        })  # fmt: skip
        others = (alive("SpringBoard", 311, 210), alive("mediaserverd", 88, 120))
        self.installation.put_report(3, killed("WeChat", 602, 160), *others)
        self.installation.put_report(9, killed("MobileNotes", 149), killed("Photos", 410), *others)
        self.installation.put_report(30, killed("dasd", 61, reason="per-process-limit"), *others)
        self.installation.put_report(52, killed("MobileSafari", 580), killed("WeChat", 540), *others)
        self.installation.start_daemon()
        self.installation.start_server()
        self.phone.set_screen(WIDTH, HEIGHT)
        self.phone.open(self.installation.address())

    def picture(self, name):
        if os.environ.get("VORLATCH_WRITE_SCREENSHOTS") != "1":
            return
        from PIL import Image  # noqa: PLC0415

        shown = Image.open(io.BytesIO(self.phone.driver.get_screenshot_as_png())).convert("RGB")
        FOLDER.mkdir(exist_ok=True)
        shown.quantize(COLOURS, dither=Image.Dither.NONE).save(FOLDER / f"{name}.png", optimize=True)

    def test_each_view_is_full(self):
        self.expect(".hero-sentence", "3 of 3 running targets held")
        self.expect(".target-card .card-title", "Notes", "WeChat", "dasd")
        self.until(lambda: len(self.phone.texts(".memory .legend li")) > 1, True)
        self.picture("now")
        self.tap("Processes")
        self.until(
            lambda: self.phone.texts(".group .row-words > strong")[:3], ["WeChat", "Photos", "MobileSafari"]
        )
        self.picture("processes")
        self.phone.go("target/com.tencent.xin")
        self.expect(".head-state", "held")
        self.expect(".view > .card:not([hidden]) canvas", "")
        self.picture("target")
        self.tap("Kills")
        self.expect(".lead", "6 kills in 4 reports of the system")
        self.expect(".chart canvas", "", "")
        self.picture("kills")


if __name__ == "__main__":
    unittest.main()
