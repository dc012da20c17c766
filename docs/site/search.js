// Finds pages by id, name or words while somebody types.
const box = document.querySelector("#search");
const list = document.querySelector("#found");
const root = document.body.dataset.root;
box.closest("search").hidden = false;

// Smaller is better; none: no match. What is searched first counts most.
function rank([label, name, , , words], query) {
    const texts = [name, label.toLowerCase(), words.toLowerCase()];
    if (texts[0] === query || texts[1] === query) return 0;
    if (texts[0].startsWith(query) || texts[1].startsWith(query)) return 1;
    if (texts[0].includes(query) || texts[1].includes(query)) return 2;
    const all = texts.join(" ");
    return query.split(/\s+/).every(word => all.includes(word)) ? 3 : undefined;
}

function find(query) {
    const matches = searchIndex.map(entry => ({ entry, rank: rank(entry, query) }));
    return matches.filter(match => match.rank !== undefined).sort((a, b) => a.rank - b.rank).slice(0, 12);
}

function show() {
    const query = box.value.trim().toLowerCase();
    list.hidden = query === "";
    const found = query === "" ? [] : find(query);
    list.replaceChildren(...found.map(({ entry: [label, name, url, kind] }) => {
        const link = document.createElement("a");
        link.href = root + url;
        link.append(label, " ", Object.assign(document.createElement("small"), { textContent: name || kind }));
        const item = document.createElement("li");
        item.append(link);
        return item;
    }));
    if (!found.length) list.append(Object.assign(document.createElement("li"), { textContent: "Nothing found" }));
}

box.addEventListener("input", show);
box.addEventListener("focus", show);
document.addEventListener("keydown", event => {
    const links = [...list.querySelectorAll("a")];
    const at = links.indexOf(document.activeElement);
    if (event.key === "/" && !/INPUT|TEXTAREA/.test(document.activeElement.tagName)) box.focus();
    else if (event.key === "Escape") list.hidden = true;
    else if (event.key === "Enter" && document.activeElement === box && links.length) links[0].click();
    else if (!list.hidden && event.key === "ArrowDown") (links[at + 1] || box).focus();
    else if (!list.hidden && event.key === "ArrowUp") (at > 0 ? links[at - 1] : box).focus();
    else return;
    event.preventDefault();
});
document.addEventListener("click", event => { if (!event.target.closest("search")) list.hidden = true; });
