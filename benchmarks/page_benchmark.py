"""How long a browser takes from a visit until the page shows the state of the targets."""

import pathlib
import statistics
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "browser"))

from installation import Installation, wait_until  # noqa: E402
from phone import Phone  # noqa: E402

VISITS = 20
# Notes the time, in ms since the visit began, at which the sentence on the targets appears.
WATCH = """
new MutationObserver(() => {
  if (window.usableMs || !document.querySelector(".hero-sentence")?.textContent) return;
  window.usableMs = performance.now();
}).observe(document, {childList: true, subtree: true, characterData: true});
"""


def visit(phone, address):
    phone.open(address)
    wait_until(lambda: phone.driver.execute_script("return window.usableMs"), "the page shows the targets")
    return phone.driver.execute_script("return window.usableMs")


def report(what, times_ms):
    print(f"{what:<42} median {statistics.median(times_ms):6.0f} ms   worst {max(times_ms):6.0f} ms   ({VISITS} visits)")


def main():
    installation, phone = Installation(), Phone()
    try:
        installation.launch("WeChat", 60, "com.tencent.xin")
        installation.set_targets({"com.tencent.xin": {"JetsamPriority": 160}})
        installation.start_daemon()
        installation.start_server()
        phone.set_screen()
        phone.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": WATCH})
        first = []
        for _ in range(VISITS):
            phone.forget()
            phone.driver.execute_cdp_cmd("Network.clearBrowserCache", {})
            first.append(visit(phone, installation.address()))
        report("a first visit, from the login on", first)
        folder = phone.driver.current_url
        report("a later visit", [visit(phone, folder) for _ in range(VISITS)])
    finally:
        phone.end()
        installation.end()


main()
