// The text of a document is the model: what is edited is the text, so that all that the page does not know stays.
import { findNodeAtLocation, getNodeValue, parseTree, type Node, type ParseError } from 'jsonc-parser';

export type Json = null | boolean | number | string | Json[] | { [key: string]: Json };
export type JsonObject = { [key: string]: Json };
export type Path = (string | number)[];

export const isObject = (value: Json | undefined): value is JsonObject =>
    typeof value === 'object' && value !== null && !Array.isArray(value);

export const equal = (a: Json | undefined, b: Json | undefined) => a === b || JSON.stringify(a) === JSON.stringify(b);

/** The value of a text, as far as it can be read; `fault` says where it is no JSON. */
export function parse(text: string): { value: Json; fault?: string } {
    const errors: ParseError[] = [];
    const tree = parseTree(text, errors);
    const value = tree ? (getNodeValue(tree) as Json) : {};
    const first = errors[0];
    if (!first) return { value };
    const before = text.slice(0, first.offset).split('\n');
    return { value, fault: `line ${before.length}, column ${before.at(-1)!.length + 1}: this is no JSON` };
}

/** A value on one line, spaced as the text is. */
function written(value: Json, isTight: boolean): string {
    if (Array.isArray(value)) return `[${value.map((element) => written(element, isTight)).join(', ')}]`;
    if (!isObject(value)) return JSON.stringify(value);
    const members = Object.entries(value).map(([key, member]) => `${JSON.stringify(key)}: ${written(member, isTight)}`);
    if (!members.length) return '{}';
    return isTight ? `{${members.join(', ')}}` : `{ ${members.join(', ')} }`;
}

const end = (node: Node) => node.offset + node.length;

function replaced(text: string, from: number, to: number, by: string) {
    return text.slice(0, from) + by + text.slice(to);
}

/** What stands before the first character of a line, or none where something else stands before `offset`. */
function indentAt(text: string, offset: number): string | undefined {
    const before = text.slice(text.lastIndexOf('\n', offset - 1) + 1, offset);
    return before.trim() === '' && offset !== before.length ? before : undefined;
}

function inserted(text: string, parent: Node, depth: number, item: string): string {
    const last = parent.children?.at(-1);
    const eol = text.includes('\r\n') ? '\r\n' : '\n';
    if (last) {
        const indent = indentAt(text, last.offset);
        return replaced(text, end(last), end(last), indent === undefined ? `, ${item}` : `,${eol}${indent}${item}`);
    }
    const [open, close] = parent.type === 'array' ? ['[', ']'] : ['{', '}'];
    const space = open === '{' && !/\{"/.test(text) ? ' ' : '';
    // The members of the document and those of its objects have lines of their own where the text has lines.
    const body =
        depth < 2 && text.includes('\n')
            ? `${eol}${'  '.repeat(depth + 1)}${item}${eol}${'  '.repeat(depth)}`
            : `${space}${item}${space}`;
    return replaced(text, parent.offset, end(parent), open + body + close);
}

function removed(text: string, node: Node): string {
    const item = node.parent?.type === 'property' ? node.parent : node;
    const siblings = item.parent?.children ?? [];
    const index = siblings.indexOf(item);
    const next = siblings[index + 1];
    const previous = siblings[index - 1];
    if (next) return replaced(text, item.offset, next.offset, '');
    if (previous) return replaced(text, end(previous), end(item), '');
    return item.parent ? replaced(text, item.parent.offset + 1, end(item.parent) - 1, '') : text;
}

/**
 * The text with a value at a path, or without it where the value is undefined. Objects on the way are made. Of a value
 * that stands already only what differs is written.
 */
export function withValue(text: string, path: Path, value: Json | undefined): string {
    const tree = parseTree(text);
    if (!tree) return text;
    const isTight = /\{"/.test(text) && !/\{ "/.test(text);
    const node = path.length ? findNodeAtLocation(tree, path) : tree;
    if (value === undefined) return node ? removed(text, node) : text;
    if (node) return withDifference(text, path, node, value, isTight);
    let depth = path.length - 1;
    while (depth > 0 && !findNodeAtLocation(tree, path.slice(0, depth))) depth--;
    const parent = depth ? findNodeAtLocation(tree, path.slice(0, depth))! : tree;
    let rest: Json = value;
    for (const key of path.slice(depth + 1).reverse()) rest = typeof key === 'number' ? [rest] : { [key]: rest };
    if (parent.type === 'array') return inserted(text, parent, depth, written(rest, isTight));
    if (parent.type !== 'object') return withValue(text, path.slice(0, depth), { [String(path[depth])]: rest });
    return inserted(text, parent, depth, `${JSON.stringify(String(path[depth]))}: ${written(rest, isTight)}`);
}

function withDifference(text: string, path: Path, node: Node, value: Json, isTight: boolean): string {
    const old = getNodeValue(node) as Json;
    if (equal(old, value)) return text;
    if (isObject(old) && isObject(value)) {
        for (const key of Object.keys(old)) if (!(key in value)) text = withValue(text, [...path, key], undefined);
        for (const key of Object.keys(value)) text = withValue(text, [...path, key], value[key]!);
        return text;
    }
    if (Array.isArray(old) && Array.isArray(value) && old.length && value.length) {
        const shorter = Math.min(old.length, value.length);
        let head = 0;
        while (head < shorter && equal(old[head], value[head])) head++;
        let tail = 0;
        while (tail < shorter - head && equal(old.at(-1 - tail), value.at(-1 - tail))) tail++;
        // From the end, so that the indices before stay.
        for (let i = old.length - tail - 1; i >= head && i >= value.length - tail; i--)
            text = withValue(text, [...path, i], undefined);
        for (let i = head; i < value.length - tail; i++) {
            if (i < old.length - tail) text = withValue(text, [...path, i], value[i]!);
            else text = withElement(text, [...path, i], value[i]!, isTight);
        }
        return text;
    }
    return replaced(text, node.offset, end(node), written(value, isTight));
}

/** The text with an element put before that at the path, or after the last one. */
function withElement(text: string, path: Path, value: Json, isTight: boolean): string {
    const tree = parseTree(text)!;
    const next = findNodeAtLocation(tree, path);
    if (!next) return withValue(text, path, value);
    const indent = indentAt(text, next.offset);
    return replaced(
        text,
        next.offset,
        next.offset,
        written(value, isTight) + (indent === undefined ? ', ' : `,\n${indent}`),
    );
}

/** The text with another key for the member at a path, in its place. */
export function withKey(text: string, path: Path, key: string): string {
    const tree = parseTree(text);
    const property = tree && findNodeAtLocation(tree, path)?.parent;
    const old = property?.children?.[0];
    return old ? replaced(text, old.offset, end(old), JSON.stringify(key)) : text;
}

interface Change {
    at: number;
    removed: string;
    inserted: string;
}

function difference(from: string, to: string): Change {
    const shorter = Math.min(from.length, to.length);
    let at = 0;
    while (at < shorter && from.charCodeAt(at) === to.charCodeAt(at)) at++;
    let tail = 0;
    while (tail < shorter - at && from.charCodeAt(from.length - 1 - tail) === to.charCodeAt(to.length - 1 - tail))
        tail++;
    return { at, removed: from.slice(at, from.length - tail), inserted: to.slice(at, to.length - tail) };
}

const done = (text: string, { at, removed, inserted }: Change) =>
    text.slice(0, at) + inserted + text.slice(at + removed.length);
const undone = (text: string, { at, removed, inserted }: Change) =>
    text.slice(0, at) + removed + text.slice(at + inserted.length);

/** All states of a text. What was undone comes back byte for byte; only differences are kept. */
export class History {
    text: string;
    #past: Change[] = [];
    #future: Change[] = [];
    #gesture?: string;

    constructor(text: string) {
        this.text = text;
    }

    get canUndo() {
        return this.#past.length > 0;
    }

    get canRedo() {
        return this.#future.length > 0;
    }

    /** Edits of the same gesture (a slider that is dragged) are undone at once. */
    replace(text: string, gesture?: string) {
        if (text === this.text) return;
        const isSame = gesture !== undefined && gesture === this.#gesture && this.#past.length > 0;
        const before = isSame ? undone(this.text, this.#past.pop()!) : this.text;
        if (before !== text) this.#past.push(difference(before, text));
        this.#future = [];
        this.#gesture = before === text ? undefined : gesture;
        this.text = text;
    }

    endGesture() {
        this.#gesture = undefined;
    }

    undo() {
        const change = this.#past.pop();
        if (!change) return;
        this.text = undone(this.text, change);
        this.#future.push(change);
        this.endGesture();
    }

    redo() {
        const change = this.#future.pop();
        if (!change) return;
        this.text = done(this.text, change);
        this.#past.push(change);
        this.endGesture();
    }
}
