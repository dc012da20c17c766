// What the text of a document says: nodes, wires and outputs.
import { isObject, parse, type Json, type JsonObject, type Path } from './document';

export interface GraphNode {
    name: string;
    type: string;
    inputs: JsonObject;
    arguments: JsonObject;
    place?: { x: number; y: number };
}

/** An end of a wire: `path` is `port[2].member` for what lies inside a port. */
export interface Wire {
    source: string;
    port: string;
    target: string;
    path: string;
}

export interface Group {
    label: string;
    nodes: string[];
}

export interface Output {
    name: string;
    from: string;
    encoding?: string;
}

export interface Graph {
    fault?: string;
    value: JsonObject;
    nodes: Map<string, GraphNode>;
    outputs: Output[];
    material?: JsonObject;
    parameters: JsonObject;
    groups: Group[];
    wires: Wire[];
}

/** Names that no node can have: what the document gives is drawn as nodes, too. */
export const OUTPUTS = '$outputs';
export const MATERIAL = '$material';
/** Followed by its index. */
export const GROUP = '$group';

export const linkOf = (value: Json | undefined): string | undefined =>
    isObject(value) && typeof value.from === 'string' ? value.from : undefined;

export const parameterOf = (value: Json | undefined): string | undefined =>
    isObject(value) && typeof value.parameter === 'string' ? value.parameter : undefined;

export function ends(link: string): { node: string; port: string } {
    const dot = link.indexOf('.');
    return { node: link.slice(0, dot), port: link.slice(dot + 1) };
}

/** `port[2].member` as a path, and back. Ports may be named with dots no, with `#` yes. */
export function pathOf(place: string): Path {
    return place
        .split(/[.[\]]+/)
        .filter(Boolean)
        .map((part) => (/^\d+$/.test(part) ? Number(part) : part));
}

export function placeOf(path: Path): string {
    return path.map((part, i) => (typeof part === 'number' ? `[${part}]` : i ? `.${part}` : part)).join('');
}

function* linksIn(value: Json, place: string): Generator<{ link: string; place: string }> {
    const link = linkOf(value);
    if (link !== undefined) yield { link, place };
    else if (Array.isArray(value))
        for (const [i, element] of value.entries()) yield* linksIn(element, `${place}[${i}]`);
    else if (isObject(value))
        for (const [key, member] of Object.entries(value)) yield* linksIn(member, place ? `${place}.${key}` : key);
}

const objectOf = (value: Json | undefined): JsonObject => (isObject(value) ? value : {});

function readNode(name: string, value: Json): GraphNode {
    const node = objectOf(value);
    const place = objectOf(node.ui).place;
    const isPlace = Array.isArray(place) && typeof place[0] === 'number' && typeof place[1] === 'number';
    return {
        name,
        type: String(node.type ?? ''),
        inputs: objectOf(node.inputs),
        arguments: objectOf(node.arguments),
        place: isPlace ? { x: place[0] as number, y: place[1] as number } : undefined,
    };
}

export function readGraph(text: string): Graph {
    const { value: whole, fault } = parse(text);
    const value = objectOf(whole);
    const nodes = new Map<string, GraphNode>();
    for (const [name, node] of Object.entries(objectOf(value.nodes))) nodes.set(name, readNode(name, node));
    const outputs = Object.entries(objectOf(value.outputs)).map(([name, output]) => ({
        name,
        from: typeof output === 'string' ? output : (linkOf(output) ?? ''),
        encoding: isObject(output) && typeof output.encoding === 'string' ? output.encoding : undefined,
    }));
    const material = isObject(value.material) ? value.material : undefined;

    const wires: Wire[] = [];
    const add = (link: string, target: string, path: string) => {
        const { node, port } = ends(link);
        if (nodes.has(node)) wires.push({ source: node, port, target, path });
    };
    for (const node of nodes.values())
        for (const { link, place } of linksIn(node.inputs, '')) add(link, node.name, place);
    for (const output of outputs) add(output.from, OUTPUTS, output.name);
    for (const { link, place } of linksIn(material ?? {}, '')) add(link, MATERIAL, place);

    const listed = objectOf(value.ui).groups;
    const groups = (Array.isArray(listed) ? listed : []).filter(isObject).map((group) => ({
        label: typeof group.label === 'string' ? group.label : '',
        nodes: Array.isArray(group.nodes) ? group.nodes.filter((name) => nodes.has(String(name))).map(String) : [],
    }));
    return { fault, value, nodes, outputs, material, parameters: objectOf(value.parameters), groups, wires };
}

/** The names of a node and of all that it depends on. */
export function upstream(graph: Graph, names: Iterable<string>): Set<string> {
    const sources = new Map<string, string[]>();
    for (const wire of graph.wires) {
        const list = sources.get(wire.target);
        if (list) list.push(wire.source);
        else sources.set(wire.target, [wire.source]);
    }
    const found = new Set<string>();
    const waiting = [...names];
    while (waiting.length) {
        const name = waiting.pop()!;
        if (found.has(name)) continue;
        found.add(name);
        waiting.push(...(sources.get(name) ?? []));
    }
    return found;
}

/** A document whose only output is a port of a node, with no more than it needs. */
export function excerpt(graph: Graph, link: string): string {
    const all = objectOf(graph.value.nodes);
    const needed = upstream(graph, [ends(link).node]);
    const nodes: JsonObject = {};
    for (const name of Object.keys(all)) if (needed.has(name)) nodes[name] = { ...objectOf(all[name]), ui: {} };
    const { outputs: _outputs, material: _material, ui: _ui, ...rest } = graph.value;
    return JSON.stringify({ ...rest, nodes, outputs: { preview: link } });
}

/** A name for a new node that none has. */
export function freeName(taken: (name: string) => boolean, wanted: string): string {
    const base = wanted.replace(/\W/g, '_').replace(/^(?=\d)/, '_') || 'node';
    if (!taken(base)) return base;
    const stem = base.replace(/_?\d+$/, '');
    let number = 2;
    while (taken(`${stem}_${number}`)) number++;
    return `${stem}_${number}`;
}
