// The types of nodes that the command offers: looked up, searched, and compared with one another.
import type { NodeType, Port, PortValue } from './host';

/** What people call things, beside the words of labels and help. */
const SYNONYMS: Record<string, string> = {
    mix: 'blend layer',
    lerp: 'blend',
    multiply: 'blend',
    add: 'blend',
    texture: 'image',
    picture: 'image',
    file: 'image',
    movie: 'image',
    ramp: 'gradient',
    curve: 'spline',
    clouds: 'noise',
    perlin: 'noise',
    worley: 'voronoi cells',
    brick: 'grid checkerboard',
    tile: 'placement grid',
    mapping: 'placement',
    uv: 'placement',
    scale: 'placement transform',
    rotate: 'placement transform',
    grey: 'convert luminance',
    gray: 'convert luminance',
    brightness: 'exposure strength',
    levels: 'contrast bias',
    hue: 'hsl',
    saturation: 'hsl',
    invert: 'invert',
    warp: 'distorter',
    displace: 'distorter bump',
    polygon: 'ngon',
    iridescence: 'film',
    material: 'bsdf',
    temperature: 'blackbody temperature',
    split: 'split',
    combine: 'compose',
    normal: 'bump',
};

/** The type of a value, without the function that it may be the result of. */
export const valueType = (type: string) => type.replace(/Function$/, '');

const NUMBERS = new Set(['Float', 'Int', 'Int32', 'UInt32', 'Bool']);
const COLORS = new Set(['Color', 'ColorA']);

/** Whether a wire may lead from an output of one type to an input of another: the conversions of the host. */
export function mayLink(from: string, to: string): boolean {
    const a = valueType(from);
    const b = valueType(to);
    if (a === b || a === '' || b === '') return true;
    const isScalar = (type: string) => NUMBERS.has(type) || COLORS.has(type);
    if (isScalar(a) && isScalar(b)) return true;
    return (a === 'Color' && b === 'Vector') || (a === 'Vector' && b === 'Color');
}

/** Which of the page's colours a type has. */
export function typeColor(type: string): string {
    const value = valueType(type);
    if (COLORS.has(value)) return 'var(--type-color)';
    if (value === 'Bool') return 'var(--type-switch)';
    if (NUMBERS.has(value)) return 'var(--type-number)';
    if (value.startsWith('Vector')) return 'var(--type-vector)';
    if (value === 'ShadingContext') return 'var(--type-context)';
    if (['String', 'Url', 'Id', 'InternedId', 'LayerSet'].includes(value)) return 'var(--type-text)';
    return 'var(--type-other)';
}

/** Whether a picture can show it. */
export const isPicture = (type: string) =>
    /^(Float|Int|Int32|UInt32|Bool|Color|ColorA|Vector|Vector2d|Vector4d)$/.test(valueType(type));

export function valuesOf(port: Port): PortValue[] {
    return (port.values ?? []).map((entry) => {
        if (typeof entry !== 'string') return entry;
        const name = entry.split('.').at(-1)!;
        return { value: entry, name, label: name.charAt(0).toUpperCase() + name.slice(1) };
    });
}

export const labelOf = (port: Port) => port.label || port.name;
export const isList = (port: Port) => !!(port.variadic || port.isArray) && !port.members;

export class Catalogue {
    #byWord = new Map<string, NodeType>();

    constructor(readonly types: NodeType[]) {
        for (const type of types) this.#byWord.set(type.name, type);
        for (const type of types) this.#byWord.set(type.id, type);
    }

    find(word: string): NodeType | undefined {
        return this.#byWord.get(word);
    }

    /** Types by how well they fit all the words that somebody types; all of them for no words. */
    search(query: string): NodeType[] {
        const words = query.toLowerCase().split(/\s+/).filter(Boolean);
        const scored = this.types.map((type) => ({
            type,
            score: words.reduce((sum, word) => sum * score(type, word), 1),
        }));
        return scored
            .filter((entry) => entry.score > 0)
            .sort((a, b) => b.score - a.score || order(a.type).localeCompare(order(b.type)))
            .map((entry) => entry.type);
    }
}

const order = (type: NodeType) => `${type.category ?? ''} ${type.label ?? type.name}`;

function score(type: NodeType, word: string): number {
    const label = (type.label ?? '').toLowerCase();
    if (type.name === word || label === word) return 100;
    if (type.name.startsWith(word) || label.startsWith(word)) return 50;
    if (label.split(/\W+/).some((part) => part.startsWith(word))) return 30;
    if (type.name.includes(word)) return 20;
    if ((type.keywords ?? '').toLowerCase().includes(word)) return 15;
    const meant = SYNONYMS[word]?.split(' ') ?? [];
    if (meant.some((other) => type.name.includes(other) || label.includes(other))) return 12;
    if ((type.category ?? '').toLowerCase().startsWith(word)) return 8;
    return (type.help ?? '').toLowerCase().includes(word) ? 2 : 0;
}
