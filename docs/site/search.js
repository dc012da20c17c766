// Finds pages by any of their words while somebody types. What it looks in is loaded when it is first asked for.
const box = document.querySelector("#search");
const list = document.querySelector("#found");
const root = document.body.dataset.root;
box.closest("search").hidden = false;

// Words as they are compared: one spelling for both sides of the ocean, and no plurals.
function processTerm(term) {
    const word = term.toLowerCase().replace(/our/g, "or").replace(/grey/g, "gray").replace(/ise$/, "ize");
    return word.length > 3 ? word.replace(/([^s])s$/, "$1") : word;
}

const settings = {
    idField: "url",
    fields: ["title", "name", "synonyms", "headings", "help", "text"],
    storeFields: ["title", "name", "kind"],
    processTerm,
    searchOptions: {
        boost: { title: 10, name: 10, synonyms: 8, headings: 3, help: 3 },
        prefix: term => term.length > 2,
        fuzzy: term => (term.length > 4 ? 0.2 : false),
        weights: { prefix: 0.4, fuzzy: 0.2 },
        boostDocument: (url, term, page) => ({ Node: 1.5, Guide: 1.3, "C++": 0.3 })[page.kind] ?? 1,
    },
};

function load(file) {
    return new Promise((done, fail) =>
        document.head.append(Object.assign(document.createElement("script"), { src: root + file, onload: done, onerror: fail })));
}

let index;
function ready() {
    index ??= load("minisearch.js").then(() => load("search-index.js")).then(() => {
        const made = new MiniSearch(settings);
        made.addAll(searchPages);
        return made;
    });
    return index;
}

// Pages that are called so, then those with all words, then those with any.
async function find(query) {
    const made = await ready();
    const words = query.toLowerCase();
    const found = made.search(query, { combineWith: "AND" });
    const others = made.search(query).filter(page => !found.some(other => other.id === page.id));
    const pages = [...found, ...others];
    const isCalledSo = page => page.title.toLowerCase() === words || page.name.split(" ").includes(words);
    return [...pages.filter(isCalledSo), ...pages.filter(page => !isCalledSo(page))].slice(0, 12);
}

async function show() {
    const query = box.value.trim();
    const found = query === "" ? [] : await find(query);
    if (query !== box.value.trim()) return; // somebody went on typing
    list.hidden = query === "";
    list.dataset.query = query;
    list.replaceChildren(...found.map(({ id, title, name, kind }) => {
        const link = document.createElement("a");
        link.href = root + id;
        link.append(title, " ", Object.assign(document.createElement("small"), { textContent: name.split(" ")[0] || kind }));
        const item = document.createElement("li");
        item.append(link);
        return item;
    }));
    if (!found.length) list.append(Object.assign(document.createElement("li"), { textContent: "Nothing found" }));
}

box.addEventListener("input", show);
box.addEventListener("focus", show);
document.addEventListener("keydown", async event => {
    const links = [...list.querySelectorAll("a")];
    const at = links.indexOf(document.activeElement);
    if (event.key === "/" && !/INPUT|TEXTAREA/.test(document.activeElement.tagName)) box.focus();
    else if (event.key === "Escape") list.hidden = true;
    else if (event.key === "Enter" && document.activeElement === box) {
        event.preventDefault();
        if (list.dataset.query !== box.value.trim()) await show();
        list.querySelector("a")?.click();
    } else if (!list.hidden && event.key === "ArrowDown") (links[at + 1] || box).focus();
    else if (!list.hidden && event.key === "ArrowUp") (at > 0 ? links[at - 1] : box).focus();
    else return;
    event.preventDefault();
});
document.addEventListener("click", event => { if (!event.target.closest("search")) list.hidden = true; });
