// The menu of narrow screens, and the search box. finish.py writes the index, search-index.js, as
// rows of group, title, page, address and text. It is a script, not data, so that the site also
// works when it is opened from a folder.
"use strict";

const byId = id => document.getElementById(id);
const query = byId("query"), results = byId("results");
const SHOWN = { Guides: 8, Reference: 12 };
let index = null, loading = false;

function loadIndex() {
    if (loading)
        return;
    loading = true;
    const script = document.createElement("script");
    script.src = "search-index.js";
    script.onload = () => { index = searchIndex; search(); };
    document.head.append(script);
}

// Rates a row, or returns 0 unless every word begins a word of it.
function rate(row, words) {
    const [group, title, page, , text] = row;
    let total = 0;
    for (const word of words) {
        const begins = new RegExp("(^|[^a-z0-9])" + word.replace(/\W/g, "\\$&"), "g");
        const name = title.toLowerCase(), count = s => (s.toLowerCase().match(begins) || []).length;
        const rating = (name === word ? 60 : name.startsWith(word) ? 40 : count(title) ? 20 : 0) +
            (count(page) ? 5 : 0) + Math.min(count(text), 5);
        const inside = group === "Reference" && name.includes(word) ? 10 : 0;
        if (rating + inside === 0)
            return 0;
        total += rating + inside;
    }
    return total;
}

function element(name, className, ...children) {
    const made = document.createElement(name);
    made.className = className;
    made.append(...children);
    return made;
}

// Marks the first word that is found in a text, and cuts the text around it.
function excerpt(text, words) {
    const lower = text.toLowerCase();
    const [at, word] = words.map(w => [lower.indexOf(w), w]).filter(f => f[0] >= 0)
        .sort((a, b) => a[0] - b[0])[0] || [-1, ""];
    const from = at < 50 ? 0 : Math.min(text.indexOf(" ", at - 45) + 1, at);
    const rest = text.slice(Math.max(at, 0) + word.length, from + 110);
    const shown = text.length > from + 110 ? rest.replace(/\s*\S*$/, "…") : rest;
    return at < 0 ? [shown] : [(from ? "…" : "") + text.slice(from, at),
        element("mark", "", text.slice(at, at + word.length)), shown];
}

function search() {
    const words = query.value.toLowerCase().split(/\s+/).filter(w => w);
    results.hidden = words.length === 0;
    results.replaceChildren();
    if (!index || results.hidden)
        return;
    const found = index.map(row => [rate(row, words), row]).filter(f => f[0] > 0)
        .sort((a, b) => b[0] - a[0]);
    const groups = new Set(found.map(f => f[1][0])); // that of the best row first
    for (const group of groups) {
        const rows = found.map(f => f[1]).filter(row => row[0] === group);
        results.append(element("h2", "", group));
        for (const [, title, page, address, text] of rows.slice(0, SHOWN[group])) {
            const link = element("a", "", element("b", "", title), " ", element("i", "", page),
                element("span", "", ...excerpt(text, words)));
            link.href = address;
            results.append(link);
        }
        if (rows.length > SHOWN[group])
            results.append(element("p", "", `and ${rows.length - SHOWN[group]} more`));
    }
    if (found.length === 0)
        results.append(element("p", "", "Nothing found."));
}

// Moves the focus among the box and the results.
function step(event, by) {
    const stops = [query, ...results.querySelectorAll("a")];
    const next = stops[stops.indexOf(document.activeElement) + by];
    if (next && !results.hidden) {
        next.focus();
        event.preventDefault();
    }
}

query.addEventListener("focus", () => { loadIndex(); search(); });
query.addEventListener("input", search);
byId("search").addEventListener("submit", event => {
    event.preventDefault();
    const first = results.querySelector("a");
    if (first)
        location.href = first.href;
});
document.addEventListener("click", event => {
    if (!byId("search").contains(event.target) || event.target.closest("#results a"))
        results.hidden = true;
});
document.addEventListener("keydown", event => {
    if (event.key === "/" && !/^(INPUT|TEXTAREA)$/.test(document.activeElement.tagName)) {
        query.focus();
        event.preventDefault();
    } else if (event.key === "Escape") {
        results.hidden = true;
        query.blur();
    } else if (byId("search").contains(document.activeElement)) {
        if (event.key === "ArrowDown")
            step(event, 1);
        else if (event.key === "ArrowUp")
            step(event, -1);
    }
});

const menu = byId("menu"), nav = byId("nav");
function showMenu(shown) {
    nav.classList.toggle("shown", shown);
    menu.setAttribute("aria-expanded", shown);
}
menu.addEventListener("click", () => showMenu(!nav.classList.contains("shown")));
nav.addEventListener("click", event => { if (event.target.closest("a")) showMenu(false); });

const current = nav.querySelector("[aria-current]");
if (current && current.offsetTop > nav.clientHeight / 2)
    nav.scrollTop = current.offsetTop - nav.clientHeight / 3;
