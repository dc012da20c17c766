"""A browser without a window, as ./dev setup installs it: for tests, and for pictures of pages."""
import sys
from pathlib import Path

PROGRAMS = {"chromium": "/usr/bin/chromium", "chromium-driver": "/usr/bin/chromedriver"}


def start(width, height, *arguments):
    """Ends the program with a word about what is missing, where something is."""
    try:
        from selenium import webdriver
        from selenium.common.exceptions import WebDriverException
        from selenium.webdriver.chrome.service import Service
    except ImportError:
        sys.exit("python3-selenium is missing; ./dev setup installs it")
    for package, program in PROGRAMS.items():
        if not Path(program).exists():
            sys.exit(f"{package} is missing; ./dev setup installs it")
    options = webdriver.ChromeOptions()
    options.binary_location = PROGRAMS["chromium"]
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", *arguments):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    try:
        browser = webdriver.Chrome(service=Service(PROGRAMS["chromium-driver"]), options=options)
    except WebDriverException as failure:
        sys.exit(f"the browser does not start: {failure.msg}")
    browser.set_script_timeout(60)
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                            {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
    return browser
