#!/usr/bin/env python3
"""Opens the page of `nima-post fleet` in headless Chromium: fleet_page_test.py SIMULATOR NIMA_POST WORK.

Needs the packages chromium, chromium-driver and python3-selenium.
"""

import json
import pathlib
import shutil
import subprocess
import sys

from selenium.webdriver.common.by import By

sys.dont_write_bytecode = True
from report_page_test import start_browser  # noqa: E402

simulator, nima_post, work = map(pathlib.Path, sys.argv[1:])


def make_page():
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    for call in ([simulator, "--fleet", "fleet", "--folders", "40", "--bytes", "20000"],
                 [nima_post, "index", "fleet", "--db", "fleet.db"],
                 [nima_post, "fleet", "fleet.db", "--html", "fleet.html", "--version-from", "firmware ([0-9.]+)"]):
        subprocess.run(call, cwd=work, check=True, stdout=subprocess.DEVNULL)
    return json.loads((work / "fleet/truth.json").read_text())["signatures"]


def check(driver, truth):
    driver.get((work / "fleet.html").as_uri())
    rows = driver.find_elements(By.CSS_SELECTOR, "#signatures tbody tr")
    shown = [[cell.text for cell in row.find_elements(By.TAG_NAME, "td")] for row in rows]
    assert [(row[4], row[0], row[1]) for row in shown] == \
        [(each["signature"], str(each["devices"]), str(each["crashes"])) for each in truth], shown
    undated = driver.find_element(By.CSS_SELECTOR, "#bars .undated").get_attribute("title")
    assert undated.startswith("undated: ") and undated != "undated: 0 crashes", undated

    stack = next(row for row in shown if "Tray::Feed(int)" in row[4])
    driver.find_element(By.LINK_TEXT, stack[4]).click()
    detail = driver.find_element(By.ID, "detail")
    chosen = [frame.text for frame in detail.find_elements(By.CSS_SELECTOR, ".chosen")]
    assert [each in line for each, line in zip(stack[4].split(" | "), chosen, strict=True)] == [True] * 3, chosen
    assert "tray # lifts slowly" in detail.text and "4." in detail.text, detail.text
    assert not driver.find_element(By.ID, "list").is_displayed()
    driver.back()
    assert driver.find_element(By.ID, "list").is_displayed() and not detail.is_displayed()
    assert not driver.get_log("browser"), driver.get_log("browser")


def main():
    truth = make_page()
    driver = start_browser(work.resolve() / "profile")
    try:
        check(driver, truth)
    finally:
        driver.quit()


main()
