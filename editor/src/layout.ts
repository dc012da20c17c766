// Places for nodes that a document gives none.
import { OUTPUTS, MATERIAL, type Graph } from './graph';

export interface Place {
    x: number;
    y: number;
}

export interface Size {
    width: number;
    height: number;
}

const namesIn = (graph: Graph) => [...graph.nodes.keys(), OUTPUTS, ...(graph.material ? [MATERIAL] : [])];

/** Columns by how much lies upstream: at once, until there is something better. */
export function columns(graph: Graph, sizeOf: (name: string) => Size): Map<string, Place> {
    const depths = new Map<string, number>();
    const sources = Map.groupBy(graph.wires, (wire) => wire.target);
    const depth = (name: string): number => {
        const known = depths.get(name);
        if (known !== undefined) return known;
        depths.set(name, 0);
        const found = Math.max(-1, ...(sources.get(name) ?? []).map((wire) => depth(wire.source))) + 1;
        depths.set(name, found);
        return found;
    };
    const places = new Map<string, Place>();
    const heights: number[] = [];
    for (const name of namesIn(graph)) {
        const column = depth(name);
        places.set(name, { x: column * 250, y: heights[column] ?? 0 });
        heights[column] = (heights[column] ?? 0) + sizeOf(name).height + 28;
    }
    return places;
}

/** Layers from left to right, by elk; it is large and loaded when it is first needed. */
export async function layout(graph: Graph, sizeOf: (name: string) => Size): Promise<Map<string, Place>> {
    const names = namesIn(graph);
    const [{ default: Elk }, { default: worker }] = await Promise.all([
        import('elkjs/lib/elk-api.js'),
        import('elkjs/lib/elk-worker.min.js?url'),
    ]);
    const elk = new Elk({ workerFactory: () => new Worker(worker) });
    try {
        const done = await elk.layout({
            id: 'graph',
            layoutOptions: {
                'elk.algorithm': 'layered',
                'elk.direction': 'RIGHT',
                'elk.layered.spacing.nodeNodeBetweenLayers': '60',
                'elk.spacing.nodeNode': '28',
                'elk.layered.nodePlacement.strategy': 'BRANDES_KOEPF',
            },
            children: names.map((name) => {
                const constraint = graph.nodes.has(name) ? 'NONE' : 'LAST';
                return {
                    id: name,
                    ...sizeOf(name),
                    layoutOptions: { 'elk.layered.layering.layerConstraint': constraint },
                };
            }),
            edges: graph.wires.map((wire, i) => ({ id: String(i), sources: [wire.source], targets: [wire.target] })),
        });
        return new Map((done.children ?? []).map((child) => [child.id, { x: child.x ?? 0, y: child.y ?? 0 }]));
    } finally {
        elk.terminateWorker();
    }
}

/** A place for one new node: right of what it reads, below what is there already. */
export function placeBeside(
    graph: Graph,
    name: string,
    places: Map<string, Place>,
    sizeOf: (name: string) => Size,
): Place {
    const sources = graph.wires.filter((wire) => wire.target === name).map((wire) => wire.source);
    const targets = graph.wires.filter((wire) => wire.source === name).map((wire) => wire.target);
    const known = (names: string[]) => names.flatMap((other) => places.get(other) ?? []);
    const left = known(sources);
    const right = known(targets);
    const all = [...places.values()];
    const place = left.length
        ? { x: Math.max(...left.map((p) => p.x)) + 260, y: left[0]!.y }
        : right.length
          ? { x: Math.min(...right.map((p) => p.x)) - 260, y: right[0]!.y }
          : { x: Math.min(0, ...all.map((p) => p.x)), y: Math.max(-120, ...all.map((p) => p.y)) + 240 };
    const boxes = [...places].filter(([other]) => other !== name).map(([other, p]) => ({ ...p, ...sizeOf(other) }));
    return freePlace(place, sizeOf(name), boxes);
}

/** The place itself, or the first one below it that nothing covers. */
export function freePlace(place: Place, size: Size, boxes: (Place & Size)[]): Place {
    const free = { ...place };
    const hit = () =>
        boxes.find(
            (box) =>
                free.x < box.x + box.width &&
                box.x < free.x + size.width &&
                free.y < box.y + box.height &&
                box.y < free.y + size.height,
        );
    for (let box = hit(); box; box = hit()) free.y = box.y + box.height + 28;
    return free;
}
