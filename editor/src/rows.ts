// The inputs of a node, one by one, as its description and the document give them.
import { isList, labelOf } from './catalogue';
import type { Json, JsonObject } from './document';
import { MATERIAL, linkOf, parameterOf, pathOf, type Graph, type GraphNode } from './graph';
import type { NodeType, Port } from './host';

/** A place where a wire may end: `path` as in `Wire`. */
export interface Row {
    path: string;
    label: string;
    type: string;
    value?: Json;
    isLinked: boolean;
}

/** Nodes with more inputs show what is in use, and the first ones. */
const MOST = 9;

const float = (name: string, label: string): Port => ({ name, direction: 'in', type: 'Float', label });
const color = (name: string, label: string): Port => ({ name, direction: 'in', type: 'Color', label });
const toggle = (name: string, label: string): Port => ({ name, direction: 'in', type: 'Bool', label });

/** What a document may say of a material; it takes what `docs/materials.md` lists. */
export const MATERIAL_PORTS: Port[] = [
    {
        name: 'bsdflayers',
        direction: 'in',
        type: 'bundle',
        label: 'Layers',
        help: 'The layers, the outermost first.',
        members: [
            { ...toggle('active', 'Active'), default: true },
            { name: 'bsdflayer', direction: 'in', type: 'net.velto.render.datatype.bsdflayer', label: 'Layer' },
            { ...float('strength', 'Strength'), default: 1, min: 0, max: 1 },
        ],
    },
    {
        name: 'aovs',
        direction: 'in',
        type: 'bundle',
        label: 'Additional outputs',
        members: [
            { ...toggle('active', 'Active'), default: true },
            { name: 'id', direction: 'in', type: 'String', label: 'Name', default: '' },
            { ...color('color', 'Colour'), type: 'ColorA' },
        ],
    },
    color('emission', 'Emission'),
    color('transparency', 'Transparency'),
    color('absorption', 'Absorption'),
    { ...float('alpha', 'Alpha'), min: 0, max: 1, default: 1 },
    { ...float('ior', 'Index of refraction'), min: 1, max: 3 },
    { ...float('roughness', 'Roughness'), min: 0, max: 1 },
    float('fresnelreflectivity', 'Fresnel reflectivity'),
    float('blurriness', 'Blurriness'),
    float('absorptiondistance', 'Absorption distance'),
    float('displacement', 'Displacement'),
    float('displacementheight', 'Displacement height'),
    { name: 'normal', direction: 'in', type: 'Vector', label: 'Normal' },
    { name: 'samplesubdiv', direction: 'in', type: 'Int', label: 'Sample subdivisions' },
    { name: 'spdlevel', direction: 'in', type: 'Int', label: 'Subdivision level' },
    toggle('alphacontrol', 'Alpha control'),
    toggle('enabletransparency', 'Enable transparency'),
    toggle('exitreflections', 'Exit reflections'),
    toggle('spd', 'Subdivision'),
    toggle('roundgeometry', 'Round geometry'),
];

/** The port that a path leads to: an element of a list, a member of a bundle, or the port itself. */
export function portAt(ports: Port[], place: string): Port | undefined {
    const [first, index, member] = pathOf(place);
    const name = String(first).split('#')[0];
    const port = ports.find((candidate) => candidate.direction === 'in' && candidate.name === name);
    if (port?.members && index !== undefined)
        return member === undefined ? port : port.members.find((inner) => inner.name === member);
    return port;
}

/** Names that a node is built from: ports are then named `port#name`. */
export function elementNames(node: GraphNode): string[] | undefined {
    const named = Object.values(node.arguments).find(
        (value) => Array.isArray(value) && value.every((element) => typeof element === 'string'),
    );
    return named as string[] | undefined;
}

/** The ports of a type that is not known, as far as the document uses them. */
function guessed(graph: Graph, node: GraphNode): Port[] {
    const names = new Set(graph.wires.filter((wire) => wire.source === node.name).map((wire) => wire.port));
    return [
        ...Object.keys(node.inputs).map((name): Port => ({ name, direction: 'in', type: '' })),
        ...[...names].map((name): Port => ({ name, direction: 'out', type: '' })),
    ];
}

export const portsOf = (graph: Graph, node: GraphNode, type: NodeType | undefined): Port[] =>
    type?.ports ?? guessed(graph, node);

function* linkedIn(value: Json | undefined, place: string): Generator<string> {
    if (linkOf(value) !== undefined) yield place;
    else if (Array.isArray(value))
        for (const [i, element] of value.entries()) yield* linkedIn(element, `${place}[${i}]`);
    else if (value && typeof value === 'object')
        for (const [key, member] of Object.entries(value)) yield* linkedIn(member, `${place}.${key}`);
}

function* rowsOfPort(port: Port, inputs: JsonObject, names: string[] | undefined): Generator<Row> {
    const label = labelOf(port);
    const value = inputs[port.name];
    const row = (path: string, text: string, type: string, held?: Json): Row => {
        const isLinked = linkOf(held) !== undefined;
        return { path, label: text, type, isLinked, value: isLinked ? undefined : held };
    };
    if (port.members) {
        for (const place of linkedIn(value, port.name)) {
            const member = portAt([port], place);
            const index = pathOf(place)[1];
            const link = { from: '' };
            yield row(place, `${label} ${Number(index) + 1}: ${labelOf(member ?? port)}`, member?.type ?? '', link);
        }
    } else if (isList(port) && names) {
        for (const name of names)
            yield row(`${port.name}#${name}`, `${label} ${name}`, port.type, inputs[`${port.name}#${name}`]);
    } else if (isList(port)) {
        const elements = Array.isArray(value) ? value : [];
        for (const [i, element] of elements.entries())
            yield row(`${port.name}[${i}]`, `${label} ${i + 1}`, port.type, element);
        yield row(`${port.name}[${elements.length}]`, `${label} +`, port.type);
    } else yield row(port.name, label, port.type, value);
}

export interface Rows {
    shown: Row[];
    hidden: number;
}

export function rowsOf(node: GraphNode, ports: Port[], isOpen: boolean): Rows {
    const names = elementNames(node);
    const all = ports
        .filter((port) => port.direction === 'in')
        .flatMap((port) => [...rowsOfPort(port, node.inputs, names)]);
    if (isOpen || all.length <= MOST) return { shown: all, hidden: 0 };
    const isUsed = (row: Row) => row.isLinked || row.value !== undefined;
    let free = MOST - all.filter(isUsed).length;
    const shown = all.filter((row) => isUsed(row) || free-- > 0);
    return { shown, hidden: all.length - shown.length };
}

/** The material's rows: what it has, and a place for one more layer. */
export function materialRows(material: JsonObject): Row[] {
    const list = (name: string) => (Array.isArray(material[name]) ? (material[name] as Json[]) : []);
    const row = (path: string, label: string, type: string, value: Json | undefined): Row => ({
        path,
        label,
        type,
        isLinked: linkOf(value) !== undefined,
    });
    const member = (entry: Json | undefined, name: string) => (entry as JsonObject | undefined)?.[name];
    const layers = list('bsdflayers');
    const layerType = MATERIAL_PORTS[0]!.members![1]!.type;
    return [
        ...layers.flatMap((entry, i) => [
            row(`bsdflayers[${i}].bsdflayer`, `Layer ${i + 1}`, layerType, member(entry, 'bsdflayer')),
            row(`bsdflayers[${i}].strength`, `Strength ${i + 1}`, 'Float', member(entry, 'strength')),
        ]),
        row(`bsdflayers[${layers.length}].bsdflayer`, 'Layer +', layerType, undefined),
        ...list('aovs').map((entry, i) =>
            row(`aovs[${i}].color`, String(member(entry, 'id') ?? `Output ${i + 1}`), 'ColorA', member(entry, 'color')),
        ),
        ...MATERIAL_PORTS.filter((port) => port.name in material && !port.members).map((port) =>
            row(port.name, labelOf(port), port.type, material[port.name]),
        ),
    ];
}

export const isPseudo = (name: string) => name === MATERIAL || name.startsWith('$');

/** A value in a few characters, for the row of a node. */
export function summary(value: Json | undefined): string {
    if (value === undefined) return '';
    const parameter = parameterOf(value);
    if (parameter !== undefined) return parameter;
    if (typeof value === 'number') return String(Number(value.toPrecision(4)));
    if (typeof value === 'string') return value.split(/[./]/).at(-1)!.slice(0, 14);
    if (typeof value === 'boolean') return value ? 'on' : 'off';
    if (Array.isArray(value) && value.length <= 3 && value.every((x) => typeof x === 'number'))
        return value.map((x) => Number((x as number).toPrecision(3))).join(' ');
    return '';
}
