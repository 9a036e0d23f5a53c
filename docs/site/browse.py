"""browse.py HTML-FOLDER PICTURES: opens the site in a headless chromium, at four widths, light and dark.

Fails on script errors, on pages that scroll sideways, on text that is hard to tell from its
background, and when search, menu or side bar do not work. Leaves a picture of each view in PICTURES.
"""

import base64
import os
import pathlib
import sys

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait

WIDTHS = (360, 390, 820, 1440)
PAGES = {"first-page": "index.html", "guide": "md_docs_strings.html",
         "class": "classLightweightString.html", "classes": "annotated.html",
         "header": "VxStringUtils_8h.html", "architecture": "md_docs_architecture.html",
         "inspect": "md_docs_inspect.html", "benchmarks": "md_docs_benchmarks.html",
         "chart": "md_docs_benchmarks_intel_xeon_6_167.html"}

# Rates the contrast of each visible text as WCAG defines it, and returns the texts below 4.5 : 1.
# Text over a picture is left out.
FAINT = """
const canvas = document.createElement("canvas").getContext("2d", { willReadFrequently: true });
function rgba(colour) {
    canvas.clearRect(0, 0, 1, 1);
    canvas.fillStyle = colour;
    canvas.fillRect(0, 0, 1, 1);
    return canvas.getImageData(0, 0, 1, 1).data;
}
function backdrop(element) {
    for (; element; element = element.parentElement) {
        const colour = rgba(getComputedStyle(element).backgroundColor);
        if (colour[3] > 200)
            return colour;
    }
    return matchMedia("(prefers-color-scheme: dark)").matches ? [0, 0, 0] : [255, 255, 255];
}
const luminance = c => [0.2126, 0.7152, 0.0722].reduce((sum, weight, i) => {
    const v = c[i] / 255;
    return sum + weight * (v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
}, 0);
const faint = new Map();
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (walker.nextNode()) {
    const element = walker.currentNode.parentElement, text = walker.currentNode.data.trim();
    if (!/[a-z0-9]/i.test(text) || !element.checkVisibility())
        continue;
    const ink = getComputedStyle(element).color, paper = backdrop(element);
    const [dark, light] = [luminance(rgba(ink)), luminance(paper)].sort((a, b) => a - b);
    const contrast = (light + 0.05) / (dark + 0.05);
    if (contrast < 4.5)
        faint.set(`${element.tagName}.${element.className} ${ink} on ${[...paper].slice(0, 3)}`,
                  `${contrast.toFixed(1)}: "${text.slice(0, 30)}"`);
}
return [...faint].map(f => f.join(" "));
"""

WIDE = """
const root = document.scrollingElement, list = document.querySelector("div.directory");
if (list && list.scrollWidth > list.clientWidth)
    return [`the list is ${list.scrollWidth} px wide`];
if (root.scrollWidth <= innerWidth)
    return [];
const guilty = [...document.querySelectorAll("body *")].filter(e =>
    e.getBoundingClientRect().right > innerWidth + 1 && e.checkVisibility());
return [`${root.scrollWidth} px wide`, ...guilty.slice(0, 4).map(e => `${e.tagName}.${e.className}`)];
"""


# Cells of prose that another column squeezed.
SQUEEZED = """
const width = document.querySelector(".contents").clientWidth;
return [...document.querySelectorAll(".mdescRight, .directory td.desc")].filter(e =>
    e.checkVisibility() && e.clientWidth < 0.45 * width).slice(0, 2).map(e =>
    `${e.clientWidth} px for "${e.textContent.slice(0, 40)}"`);
"""


class Browser:
    def __init__(self, folder, pictures):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for option in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage",
                       "--hide-scrollbars", "--force-device-scale-factor=1"):
            options.add_argument(option)
        if os.geteuid() == 0:  # chromium refuses its sandbox to root
            options.add_argument("--no-sandbox")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.folder, self.pictures = folder.resolve(), pictures
        self.faults, self.views, self.view = [], 0, ""

    def set_view(self, width, scheme):
        self.width, self.scheme = width, scheme
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": 900, "deviceScaleFactor": 1, "mobile": width < 800})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme},
                         {"name": "prefers-reduced-motion", "value": "reduce"}]})

    def open(self, page):
        self.view = f"{page} at {self.width} px, {self.scheme}"
        self.driver.get((self.folder / page).as_uri())

    def fault(self, text):
        self.faults.append(f"{self.view}: {text}")

    def expect(self, condition, text):
        if not condition:
            self.fault(text)

    def reaches(self, condition, text):
        """Waits for a condition. The time is that of a hang, not of a slow machine."""
        try:
            return WebDriverWait(self.driver, 60).until(condition)
        except TimeoutException:
            self.fault(text)
            return False

    def run(self, script):
        return self.driver.execute_script(script)

    def find(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def check_view(self, name, whole=True):
        """Checks what every view must keep, and leaves a picture if it is given a name."""
        self.views += 1
        for text in self.run(WIDE):
            self.fault(f"scrolls sideways: {text}")
        for text in self.run(SQUEEZED):
            self.fault(f"squeezed: {text}")
        for text in self.run(FAINT):
            self.fault(f"contrast {text}")
        for message in self.driver.get_log("browser"):
            self.fault(f"{message['level']}: {message['message']}")
        if not name:
            return
        height = min(self.run("return document.documentElement.scrollHeight"), 4000)
        picture = self.driver.execute_cdp_cmd("Page.captureScreenshot", {
            "captureBeyondViewport": whole, **({"clip": {
                "x": 0, "y": 0, "width": self.width, "height": height, "scale": 1}} if whole else {})})
        path = self.pictures / f"{name}-{self.width}-{self.scheme}.png"
        path.write_bytes(base64.b64decode(picture["data"]))

    def check_dark(self):
        paper = self.run("return getComputedStyle(document.body).backgroundColor")
        light = sum(map(int, paper[paper.index("(") + 1:-1].split(",")[:3])) > 384
        self.expect(light == (self.scheme == "light"), f"the page is {paper}")

    def check_search(self, words, group, address):
        """Types words into the search box: the first row of the group must lead to the address."""
        self.open("classLightweightString.html")
        self.view += f", search for '{words}'"
        self.find("#query")[0].send_keys(words)
        if not self.reaches(lambda _: self.find("#results > *"), "nothing is shown"):
            return
        self.check_view("search-" + words.replace(" ", "-"), whole=False)
        rows = self.run("return [...document.querySelectorAll('#results a, #results h2')].map("
                        "e => e.getAttribute('href') || e.textContent)")
        first = rows[rows.index(group) + 1] if group in rows else None
        self.expect((first or "").startswith(address), f"the first of {group} is {first}, not {address}")
        boxes = self.run("const r = document.getElementById('results').getBoundingClientRect();"
                         "return [r.left, r.right, innerWidth]")
        self.expect(0 <= boxes[0] and boxes[1] <= boxes[2], f"the results reach from {boxes}")
        if rows[:2] == [group, first]:
            self.find("#query")[0].send_keys(Keys.ENTER)
            self.reaches(lambda driver: driver.current_url.endswith(first), "Enter leads nowhere")

    def check_menu(self):
        """The side bar is beside the page, or on narrow screens behind a button."""
        self.open("md_docs_strings.html")
        self.check_content_width()
        nav, button = self.find("#nav")[0], self.find("#menu")[0]
        if button.is_displayed():
            self.expect(not nav.is_displayed(), "the menu is open at the start")
            button.click()
        self.expect(nav.is_displayed(), "there is no side bar")
        self.expect(self.run("return [...document.querySelectorAll('#nav h2')].map("
                             "e => e.textContent).join()") == "Guides,Reference,Project",
                    "the side bar has other groups")
        self.check_view("menu", whole=False)

    def check_content_width(self):
        width = self.run("return document.querySelector('.contents p').clientWidth")
        self.expect(width > 0.85 * min(self.width, 700), f"the content is {width} px wide")


def main():
    folder, pictures = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    pictures.mkdir(parents=True, exist_ok=True)
    browser = Browser(folder, pictures)
    try:
        for width in WIDTHS:
            for scheme in ("light", "dark"):
                browser.set_view(width, scheme)
                for name, page in PAGES.items():
                    browser.open(page)
                    browser.check_view(name)
                    browser.check_dark()
                browser.check_menu()
                browser.check_search("sharing", "Guides", "md_docs_strings.html#sharing")
                browser.check_search("parse number", "Guides",
                                     "md_docs_recipes.html#parse-a-number-strictly")
                browser.check_search("substitute", "Reference", "namespaceVx.html#")
        # Every other page once, as narrow as it gets.
        browser.set_view(min(WIDTHS), "dark")
        for page in sorted(p.name for p in folder.glob("*.html")):
            browser.open(page)
            browser.check_view("")
    finally:
        browser.driver.quit()
    if browser.faults:
        sys.exit("\n".join(dict.fromkeys(browser.faults)))
    print(f"{browser.views} views, none with a fault; the pictures are in {pictures}")


main()
