// What is edited, what is chosen, and what the command said of it. There is one of it.
import { Catalogue, isPicture, mayLink, valueType } from './catalogue';
import { History, isObject, withKey, withValue, type Json, type JsonObject, type Path } from './document';
import {
    ends,
    freeName,
    GROUP,
    linkOf,
    MATERIAL,
    OUTPUTS,
    pathOf,
    readGraph,
    upstream,
    type Graph,
    type Wire,
} from './graph';
import { host, Refusal, type Check, type Cost, type Diagnostic, type NodeType, type Port, type Start } from './host';
import type { Place } from './layout';
import { MATERIAL_PORTS, materialRows, portAt, portsOf, rowsOf, type Row, type Rows } from './rows';

/** A wire that is being drawn: from an output, or back from an input. */
export interface Linking {
    node: string;
    /** The output's name, or the path of the input. */
    port: string;
    isSource: boolean;
    type: string;
}

export interface Choice {
    label: string;
    detail?: string;
    help?: string;
    run: () => void;
}

/** A list to choose from by typing. */
export interface Palette {
    title: string;
    find: (query: string) => Choice[];
    /** On the screen; in the middle where none is given. */
    at?: Place;
}

const firstWords = (text: string) => /^[^.]*\.?/.exec(text)![0];

class Session {
    started = $state.raw<Start>();
    catalogue = $state.raw(new Catalogue([]));
    text = $state.raw('');
    saved = $state.raw('');
    graph: Graph = $derived(readGraph(this.text));
    isDirty = $derived(this.text !== this.saved);
    canUndo = $state(false);
    canRedo = $state(false);

    /** Names of nodes, and of what is drawn as such. */
    selection = $state.raw<string[]>([]);
    wireSelection = $state.raw<string[]>([]);
    /** Places that the document does not say. */
    laid = $state.raw(new Map<string, Place>());
    open = $state.raw(new Set<string>());
    linking = $state.raw<Linking>();
    checked = $state.raw<Check>({ diagnostics: [], outputs: [] });
    heat = $state.raw<Cost>();
    /** A port that is looked at in the place of an output. */
    looked = $state.raw<string>();

    palette = $state.raw<Palette>();
    /** The text on disk, where it differs from what this page began with and has edited. */
    conflict = $state.raw<{ text: string; revision: number }>();
    isHelpShown = $state(false);
    note = $state('');
    isGone = $state(false);

    #history = new History('');
    #revision = 0;
    #isChecking = false;
    #checkTimer = 0;

    /** Set by the graph: where new nodes go, and how its view moves. */
    middleOfGraph: () => Place = () => ({ x: 0, y: 0 });
    fit: () => void = () => {};

    isView = $derived(this.started?.view ?? false);

    async begin() {
        const [started, types] = await Promise.all([host.start(), host.nodes()]);
        this.catalogue = new Catalogue(types);
        this.started = started;
        this.#history = new History(started.text);
        this.#revision = started.revision;
        this.saved = started.isNew ? '' : started.text;
        this.#show();
        void this.#follow();
    }

    #show() {
        this.text = this.#history.text;
        this.canUndo = this.#history.canUndo;
        this.canRedo = this.#history.canRedo;
        this.heat = undefined;
        clearTimeout(this.#checkTimer);
        this.#checkTimer = window.setTimeout(() => void this.#check(), 40);
    }

    async #check() {
        if (this.#isChecking) return;
        this.#isChecking = true;
        for (let text; text !== this.text;) {
            text = this.text;
            try {
                this.checked = await host.check(text);
            } catch (failure) {
                this.#say(failure);
            }
        }
        this.#isChecking = false;
    }

    /** Shows what is on disk as soon as it changes, or asks where the page has something else. */
    async #follow() {
        for (;;) {
            try {
                const change = await host.change(this.#revision);
                this.isGone = false;
                if (!change || change.revision === this.#revision) continue;
                this.#revision = change.revision;
                if (change.text === this.saved) continue;
                if (!this.isDirty || change.text === this.text) this.#take(change.text);
                else this.conflict = change;
            } catch {
                this.isGone = true;
                await new Promise((resolve) => setTimeout(resolve, 1000));
            }
        }
    }

    #take(text: string) {
        this.saved = text;
        this.conflict = undefined;
        this.edit(text);
    }

    takeTheirs() {
        if (this.conflict) this.#take(this.conflict.text);
    }

    keepMine() {
        this.saved = this.conflict?.text ?? this.saved;
        this.conflict = undefined;
    }

    #say(failure: unknown) {
        this.note = failure instanceof Error ? failure.message : String(failure);
    }

    say(note: string) {
        this.note = note;
    }

    async save() {
        if (this.isView) return;
        const text = this.text;
        try {
            this.#revision = await host.save(text, this.#revision);
            this.saved = text;
            this.note = `Saved ${this.started!.name}.`;
        } catch (failure) {
            if (failure instanceof Refusal && failure.status === 409 && typeof failure.answer.text === 'string') {
                this.#revision = Number(failure.answer.revision);
                this.conflict = { text: failure.answer.text, revision: this.#revision };
            } else this.#say(failure);
        }
    }

    async measure() {
        if (this.heat) {
            this.heat = undefined;
            return;
        }
        this.note = 'Measuring …';
        const text = this.text;
        try {
            const heat = await host.cost(text, 256);
            if (text === this.text) this.heat = heat;
            this.note = `${heat.nanosecondsPerSample.toPrecision(3)} ns a sample`;
        } catch (failure) {
            if (failure instanceof Refusal && failure.status === 404) this.note = 'This command measures no costs.';
            else this.#say(failure);
        }
    }

    // Edits

    edit(text: string, gesture?: string) {
        this.#history.replace(text, gesture);
        this.#show();
    }

    endGesture() {
        this.#history.endGesture();
    }

    undo() {
        this.#history.undo();
        this.#show();
    }

    redo() {
        this.#history.redo();
        this.#show();
    }

    typeOf(name: string): NodeType | undefined {
        const node = this.graph.nodes.get(name);
        return node && this.catalogue.find(node.type);
    }

    portsOf(name: string): Port[] {
        if (name === MATERIAL) return MATERIAL_PORTS;
        const node = this.graph.nodes.get(name);
        return node ? portsOf(this.graph, node, this.typeOf(name)) : [];
    }

    outputPort(link: string): Port | undefined {
        const { node, port } = ends(link);
        return this.portsOf(node).find((candidate) => candidate.direction === 'out' && candidate.name === port);
    }

    /** What the document gives an input, or undefined. */
    given(node: string, port: string): Json | undefined {
        return (node === MATERIAL ? this.graph.material : this.graph.nodes.get(node)?.inputs)?.[port];
    }

    /** Sets an input, or an element or member of it; leaves it out where the value is undefined. */
    setInput(node: string, place: string, value: Json | undefined, gesture?: string) {
        this.edit(this.#withInput(this.text, node, place, value), gesture);
    }

    #withInput(text: string, node: string, place: string, value: Json | undefined): string {
        const [port, ...inner] = pathOf(place) as [string, ...Path];
        const base: Path = node === MATERIAL ? ['material'] : ['nodes', node, 'inputs'];
        const old = this.given(node, port) ?? portAt(this.portsOf(node), port)?.default ?? null;
        if (inner.length) value = changed(old, inner, value);
        text = withValue(text, [...base, port], value);
        const inputs = readGraph(text).nodes.get(node)?.inputs;
        const isEmpty = value === undefined && inputs && !Object.keys(inputs).length;
        return isEmpty ? withValue(text, base, undefined) : text;
    }

    setArgument(node: string, name: string, value: Json) {
        this.edit(withValue(this.text, ['nodes', node, 'arguments', name], value));
    }

    // Wires

    /** Whether a wire may lead from an output to an input. */
    mayLink(source: string, port: string, target: string, path: string): boolean {
        if (source === target || !this.graph.nodes.has(source)) return false;
        if (upstream(this.graph, [source]).has(target)) return false;
        const from = this.outputPort(`${source}.${port}`)?.type ?? '';
        return mayLink(from, this.inputType(target, path));
    }

    inputType(target: string, path: string): string {
        return target === OUTPUTS ? '' : (portAt(this.portsOf(target), path)?.type ?? '');
    }

    link(source: string, port: string, target: string, path: string) {
        this.edit(this.#withLink(this.text, source, port, target, path));
    }

    #withLink(text: string, source: string, port: string, target: string, path: string): string {
        const from = `${source}.${port}`;
        if (target !== OUTPUTS) return this.#withInput(text, target, path, { from });
        const taken = (name: string) => this.graph.outputs.some((output) => output.name === name);
        const old = this.graph.value.outputs;
        const output = isObject(old) ? old[path] : undefined;
        const color = valueType(this.outputPort(from)?.type ?? '').startsWith('Color');
        const name = path === '+' ? freeName(taken, color ? 'color' : source) : path;
        return withValue(text, isObject(output) ? ['outputs', name, 'from'] : ['outputs', name], from);
    }

    unlink(wire: Wire) {
        this.edit(this.#withoutWire(this.text, wire));
    }

    #withoutWire(text: string, wire: Wire): string {
        if (wire.target === OUTPUTS) return withValue(text, ['outputs', wire.path], undefined);
        const path = pathOf(wire.path);
        // A layer without its link is no layer.
        const isLayer = wire.target === MATERIAL && path[2] === 'bsdflayer';
        return this.#withInput(text, wire.target, isLayer ? `${path[0]}[${path[1]}]` : wire.path, undefined);
    }

    /** What a wire that is being drawn must not reach, since there would be a circle. */
    #circle = $derived.by(() => {
        const linking = this.linking;
        if (!linking) return new Set<string>();
        if (linking.isSource) return upstream(this.graph, [linking.node]);
        const turned = this.graph.wires.map((wire) => ({ ...wire, source: wire.target, target: wire.source }));
        return upstream({ ...this.graph, wires: turned }, [linking.node]);
    });

    /** Whether the wire that is being drawn may end there. */
    mayEnd(node: string, type: string, isSource: boolean): boolean {
        const linking = this.linking;
        if (!linking || linking.isSource === isSource || this.#circle.has(node)) return false;
        return linking.isSource ? mayLink(linking.type, type) : mayLink(type, linking.type);
    }

    // Nodes

    /** Adds a node and gives its name; a wire that waits for it is linked to the first port that takes it. */
    add(type: NodeType, at?: Place, linking?: Linking): string {
        const name = freeName((taken) => this.graph.nodes.has(taken), type.name);
        const word = this.catalogue.find(type.name) === type ? type.name : type.id;
        const ui: JsonObject = at && this.#hasPlaces ? { ui: { place: [Math.round(at.x), Math.round(at.y)] } } : {};
        let text = withValue(this.text, ['nodes', name], { type: word, ...ui });
        if (linking) {
            const port = this.fitting(type, linking)[0];
            if (port && linking.isSource) {
                const path = port.variadic ? `${port.name}[0]` : port.name;
                text = withValue(
                    text,
                    ['nodes', name, 'inputs', ...pathOf(path).slice(0, 1)],
                    port.variadic
                        ? [{ from: `${linking.node}.${linking.port}` }]
                        : { from: `${linking.node}.${linking.port}` },
                );
            } else if (port) text = this.#withLink(text, name, port.name, linking.node, linking.port);
        }
        if (at) this.laid = new Map(this.laid).set(name, at);
        this.edit(text);
        this.selection = [name];
        return name;
    }

    /** Ports of a type that a wire may lead to. What people see comes before contexts. */
    fitting(type: NodeType, linking: Linking): Port[] {
        const ports = type.ports.filter((port) => {
            if (port.direction !== (linking.isSource ? 'in' : 'out') || port.members) return false;
            return linking.isSource ? mayLink(linking.type, port.type) : mayLink(port.type, linking.type);
        });
        const own = valueType(linking.type);
        const local = (port: Port) => Number(port.name === 'contextLocal');
        return ports.sort(
            (a, b) => Number(valueType(b.type) === own) - Number(valueType(a.type) === own) || local(b) - local(a),
        );
    }

    get #hasPlaces() {
        return [...this.graph.nodes.values()].some((node) => node.place);
    }

    /** The text without nodes, and without the wires that lead from them. */
    #withoutNodes(names: string[]): string {
        const gone = new Set(names.filter((name) => this.graph.nodes.has(name)));
        let text = names.includes(MATERIAL) ? withValue(this.text, ['material'], undefined) : this.text;
        // From behind, so that indices stay right.
        for (const wire of this.graph.wires.toReversed())
            if (gone.has(wire.source) && !gone.has(wire.target))
                text = this.#later(text, (s) => s.#withoutWire(text, wire));
        for (const name of gone) text = withValue(text, ['nodes', name], undefined);
        for (const [i, group] of [...this.graph.groups.entries()].toReversed()) {
            const left = group.nodes.filter((name) => !gone.has(name));
            if (left.length === group.nodes.length) continue;
            const path = ['ui', 'groups', i];
            text = left.length ? withValue(text, [...path, 'nodes'], left) : withValue(text, path, undefined);
        }
        return text;
    }

    /** Runs an edit that looks at the graph on a text that is not shown yet. */
    #later(text: string, change: (session: Session) => string): string {
        const shown = this.text;
        this.text = text;
        const result = change(this);
        this.text = shown;
        return result;
    }

    removeSelection() {
        let text = this.text;
        const wires = this.graph.wires.filter((wire) => this.wireSelection.includes(wireId(wire)));
        for (const wire of wires.toReversed()) text = this.#later(text, (s) => s.#withoutWire(text, wire));
        const groups = this.selection
            .filter((name) => name.startsWith(GROUP))
            .map((name) => Number(name.slice(GROUP.length)));
        for (const i of groups.toSorted((a, b) => b - a)) text = withValue(text, ['ui', 'groups', i], undefined);
        const names = this.selection;
        this.wireSelection = [];
        this.selection = [];
        this.edit(this.#later(text, (s) => s.#withoutNodes(names)));
    }

    rename(name: string, wanted: string) {
        if (!/^[A-Za-z_]\w*$/.test(wanted))
            return this.say('A name is letters, digits and _, and starts with no digit.');
        if (wanted === name) return;
        if (this.graph.nodes.has(wanted)) return this.say(`There is a node ${wanted} already.`);
        let text = withKey(this.text, ['nodes', name], wanted);
        for (const wire of this.graph.wires.filter((wire) => wire.source === name)) {
            const target = wire.target === name ? wanted : wire.target;
            const base: Path = target === MATERIAL ? ['material'] : ['nodes', target, 'inputs'];
            const from = `${wanted}.${wire.port}`;
            const output = (this.graph.value.outputs as JsonObject | undefined)?.[wire.path];
            if (target !== OUTPUTS) text = withValue(text, [...base, ...pathOf(wire.path), 'from'], from);
            else text = withValue(text, ['outputs', wire.path, ...(isObject(output) ? ['from'] : [])], from);
        }
        for (const [i, group] of this.graph.groups.entries())
            if (group.nodes.includes(name))
                text = withValue(
                    text,
                    ['ui', 'groups', i, 'nodes'],
                    group.nodes.map((n) => (n === name ? wanted : n)),
                );
        const place = this.laid.get(name);
        if (place) this.laid = new Map(this.laid).set(wanted, place);
        this.edit(text);
        this.selection = [wanted];
    }

    // Copies

    /** The chosen nodes as a document that may be pasted anywhere. */
    copied(): string | undefined {
        const all = this.graph.value.nodes as JsonObject | undefined;
        const names = this.selection.filter((name) => this.graph.nodes.has(name));
        if (!all || !names.length) return undefined;
        const nodes: JsonObject = {};
        for (const name of names) {
            const place = this.placeOf(name);
            nodes[name] = { ...(all[name] as JsonObject), ui: { place: [place.x, place.y] } };
        }
        return JSON.stringify({ nodes }, null, 2);
    }

    paste(copied: string): boolean {
        const pasted = readGraph(copied);
        if (pasted.fault || !pasted.nodes.size) return false;
        const names = new Map<string, string>();
        const isTaken = (name: string) => this.graph.nodes.has(name) || [...names.values()].includes(name);
        for (const name of pasted.nodes.keys()) names.set(name, freeName(isTaken, name));
        let text = this.text;
        const laid = new Map(this.laid);
        for (const [name, node] of pasted.nodes) {
            const { ui: _ui, ...rest } = (pasted.value.nodes as JsonObject)[name] as JsonObject;
            const inputs = relinked(rest.inputs ?? {}, (link) => {
                const { node: source, port } = ends(link);
                const renamed = names.get(source) ?? (this.graph.nodes.has(source) ? source : undefined);
                return renamed && `${renamed}.${port}`;
            }) as JsonObject;
            const place = node.place && { x: Math.round(node.place.x + 40), y: Math.round(node.place.y + 40) };
            if (place) laid.set(names.get(name)!, place);
            const ui: JsonObject = place && this.#hasPlaces ? { ui: { place: [place.x, place.y] } } : {};
            const given: JsonObject = Object.keys(inputs).length ? { inputs } : {};
            text = withValue(text, ['nodes', names.get(name)!], { ...rest, ...given, ...ui });
        }
        this.laid = laid;
        this.edit(text);
        this.selection = [...names.values()];
        return true;
    }

    duplicate() {
        const copied = this.copied();
        if (copied) this.paste(copied);
    }

    // Places and groups

    placeOf(name: string): Place {
        const ui = this.graph.value.ui;
        const own = isObject(ui) ? ui[name === OUTPUTS ? 'outputs' : name === MATERIAL ? 'material' : ''] : undefined;
        if (Array.isArray(own)) return { x: Number(own[0]), y: Number(own[1]) };
        return this.graph.nodes.get(name)?.place ?? this.laid.get(name) ?? { x: 0, y: 0 };
    }

    /** Writes places; the first time those of all nodes, since people then have arranged them. */
    move(places: Map<string, Place>, gesture?: string) {
        const all = new Map(places);
        if (!this.#hasPlaces) for (const [name, place] of this.laid) if (!all.has(name)) all.set(name, place);
        let text = this.text;
        for (const [name, { x, y }] of all) {
            const place = [Math.round(x), Math.round(y)];
            if (this.graph.nodes.has(name)) text = withValue(text, ['nodes', name, 'ui', 'place'], place);
            else if (name === OUTPUTS) text = withValue(text, ['ui', 'outputs'], place);
            else if (name === MATERIAL && this.graph.material) text = withValue(text, ['ui', 'material'], place);
        }
        this.edit(text, gesture);
    }

    group() {
        const nodes = this.selection.filter((name) => this.graph.nodes.has(name));
        if (!nodes.length) return this.say('Choose the nodes of the group first.');
        const index = this.graph.groups.length;
        this.edit(withValue(this.text, ['ui', 'groups', index], { label: `Group ${index + 1}`, nodes }));
        this.selection = [`${GROUP}${index}`];
    }

    // Faults

    diagnosticsAt(node: string, port?: string): Diagnostic[] {
        const places = node === OUTPUTS ? ['outputs'] : node === MATERIAL ? ['material'] : [`nodes.${node}`];
        const inputs = node === MATERIAL ? 'material' : `nodes.${node}.inputs`;
        if (port !== undefined) places[0] = node === OUTPUTS ? `outputs.${port}` : `${inputs}.${port}`;
        return this.checked.diagnostics.filter(({ place }) =>
            places.some(
                (start) => place === start || (place.startsWith(start) && /[.[]/.test(place[start.length] ?? '')),
            ),
        );
    }

    // Lists to choose from

    search(at?: Place, flowAt?: Place, linking?: Linking) {
        this.palette = {
            title: linking ? `Add a node for ${linking.node}.${linking.port}` : 'Add a node',
            at,
            find: (query) =>
                this.catalogue
                    .search(query)
                    .filter((type) => !linking || this.fitting(type, linking).length)
                    .map((type) => ({
                        label: type.label ?? type.name,
                        detail: type.category,
                        help: firstWords(type.help ?? ''),
                        run: () => this.add(type, flowAt ?? (linking ? undefined : this.middleOfGraph()), linking),
                    })),
        };
    }

    /** By keys alone: an output of the chosen node, then where it leads. */
    linkChosen() {
        const [name] = this.selection;
        const outputs = name ? this.portsOf(name).filter((port) => port.direction === 'out') : [];
        if (!name || !outputs.length) return this.say('Choose a node with an output first.');
        const choose = (port: Port) => this.chooseTarget(name, port.name);
        if (outputs.length === 1) return choose(outputs[0]!);
        const choices = outputs.map((port) => ({
            label: port.name,
            detail: valueType(port.type),
            run: () => choose(port),
        }));
        this.palette = { title: `Link which output of ${name}`, find: filtered(choices) };
    }

    chooseAll() {
        this.selection = [...this.graph.nodes.keys()];
    }

    /** Looks at a node in the place of the document's outputs, and back. */
    look(link = this.selection.flatMap((name) => this.pictureOf(name) ?? [])[0]) {
        this.looked = link === this.looked ? undefined : link;
    }

    /** The first output of a node that a picture can show. */
    pictureOf(name: string): string | undefined {
        const port = this.portsOf(name).find((candidate) => candidate.direction === 'out' && isPicture(candidate.type));
        return this.graph.nodes.has(name) && port ? `${name}.${port.name}` : undefined;
    }

    /** Every place of a node, or of what is drawn as one, where a wire may end. */
    rowsOf(name: string, isOpen: boolean): Rows {
        if (name === MATERIAL) return { shown: materialRows(this.graph.material ?? {}), hidden: 0 };
        if (name === OUTPUTS) {
            const row = (path: string, label: string): Row => ({ path, label, type: '', isLinked: path !== '+' });
            const shown = this.graph.outputs.map((output) => row(output.name, output.name));
            return { shown: [...shown, row('+', 'New output')], hidden: 0 };
        }
        const node = this.graph.nodes.get(name);
        return node ? rowsOf(node, this.portsOf(name), isOpen) : { shown: [], hidden: 0 };
    }

    /** Offers what an input may be linked to. */
    chooseSource(target: string, path: string, at?: Place) {
        const choices: Choice[] = [];
        for (const node of this.graph.nodes.values())
            for (const port of this.portsOf(node.name))
                if (port.direction === 'out' && this.mayLink(node.name, port.name, target, path))
                    choices.push({
                        label: `${node.name}.${port.name}`,
                        detail: valueType(port.type),
                        run: () => this.link(node.name, port.name, target, path),
                    });
        this.palette = { title: `Link ${path} to`, at, find: filtered(choices) };
    }

    /** Offers the inputs, of one node or of all, that an output may lead to. */
    chooseTarget(source: string, port: string, at?: Place, only?: string) {
        const names = only ? [only] : [...this.graph.nodes.keys(), OUTPUTS, ...(this.graph.material ? [MATERIAL] : [])];
        const choices = names.flatMap((target) =>
            this.rowsOf(target, true)
                .shown.filter((row) => this.mayLink(source, port, target, row.path))
                .map((row) => ({
                    label: `${target.replace('$', '')}: ${row.label}`,
                    detail: valueType(this.inputType(target, row.path)),
                    run: () => this.link(source, port, target, row.path),
                })),
        );
        this.palette = { title: `Link ${source}.${port} to`, at, find: filtered(choices) };
    }

    findNode() {
        const choices = [...this.graph.nodes.values()].map((node) => ({
            label: node.name,
            detail: this.typeOf(node.name)?.label ?? node.type,
            run: () => {
                this.selection = [node.name];
                this.fit();
            },
        }));
        this.palette = { title: 'Find a node', find: filtered(choices) };
    }
}

export function filtered(choices: Choice[]) {
    return (query: string) => {
        const words = query.toLowerCase().split(/\s+/).filter(Boolean);
        return choices.filter((choice) =>
            words.every((word) => `${choice.label} ${choice.detail ?? ''}`.toLowerCase().includes(word)),
        );
    };
}

export const wireId = (wire: Wire) => `${wire.source}.${wire.port}>${wire.target}:${wire.path}`;

/** A value with another one inside it; an element is taken out where that is undefined. */
function changed(old: Json, [key, ...rest]: Path, value: Json | undefined): Json {
    if (key === undefined) return value!;
    const inner = (held: Json | undefined) => (rest.length ? changed(held ?? null, rest, value) : value);
    if (typeof key === 'number') {
        const list = Array.isArray(old) ? [...old] : [];
        const element = inner(list[key]);
        if (element === undefined) list.splice(key, 1);
        else list[key] = element;
        return list;
    }
    const object: JsonObject = isObject(old) ? { ...old } : {};
    const member = inner(object[key]);
    if (member === undefined) delete object[key];
    else object[key] = member;
    return object;
}

/** A value whose links are renamed; those that lead nowhere are left out. */
function relinked(value: Json, rename: (link: string) => string | undefined): Json | undefined {
    const link = linkOf(value);
    if (link !== undefined) {
        const renamed = rename(link);
        return renamed === undefined ? undefined : { ...(value as JsonObject), from: renamed };
    }
    if (Array.isArray(value)) return value.flatMap((element) => relinked(element, rename) ?? []);
    if (!isObject(value)) return value;
    const entries = Object.entries(value).map(([key, member]) => [key, relinked(member, rename)] as const);
    return Object.fromEntries(entries.filter(([, member]) => member !== undefined)) as JsonObject;
}

export const session = new Session();
