// The command that serves the page: what may be asked of it. Addresses are relative to the page's own.
import type { Json, JsonObject } from './document';

export interface PortValue {
    value: string;
    name: string;
    label: string;
}

export interface Port {
    name: string;
    direction: 'in' | 'out';
    type: string;
    label?: string;
    help?: string;
    default?: Json;
    min?: Json;
    max?: Json;
    values?: (string | PortValue)[];
    variadic?: boolean;
    isArray?: boolean;
    group?: string;
    members?: Port[];
}

export interface NodeType {
    id: string;
    name: string;
    label?: string;
    category?: string;
    help?: string;
    keywords?: string;
    ports: Port[];
}

export interface Start {
    name: string;
    path: string;
    isNew: boolean;
    view: boolean;
    version: string;
    text: string;
    revision: number;
    searchPaths: string[];
}

export interface Diagnostic {
    place: string;
    text: string;
    severity: 'error' | 'warning';
}

export interface Check {
    diagnostics: Diagnostic[];
    outputs: { name: string; type: string }[];
}

export interface PictureRequest {
    text: string;
    output: string;
    width: number;
    height: number;
    x?: number;
    y?: number;
    w?: number;
    h?: number;
    step?: number;
    frame?: number;
    fps?: number;
    shape?: 'plane' | 'sphere';
}

/** Rows from the top, channels interleaved. */
export interface Picture {
    width: number;
    height: number;
    channels: number;
    milliseconds: number;
    data: Float32Array;
}

export interface Cost {
    nodes: { name: string; nanoseconds: number; evaluations: number }[];
    nanosecondsPerSample: number;
}

export interface Folder {
    folder: string;
    entries: { name: string; path: string; isFolder: boolean }[];
}

/** What the command answers when it cannot do what is asked. */
export class Refusal extends Error {
    constructor(
        readonly status: number,
        readonly answer: JsonObject,
    ) {
        const diagnostics = answer.diagnostics as Diagnostic[] | undefined;
        const first = diagnostics?.find((diagnostic) => diagnostic.severity === 'error') ?? diagnostics?.[0];
        super(String(answer.error ?? (first ? `${first.place}: ${first.text}` : `status ${status}`)));
    }
}

async function answerOf(response: Response): Promise<Response> {
    if (response.ok) return response;
    const answer = (await response.json().catch(() => ({}))) as JsonObject;
    throw new Refusal(response.status, answer);
}

async function ask<T>(address: string): Promise<T> {
    return (await answerOf(await fetch(address))).json() as Promise<T>;
}

function send(address: string, body: object, method = 'POST', signal?: AbortSignal): Promise<Response> {
    const headers = { 'Content-Type': 'application/json' };
    return fetch(address, { method, headers, body: JSON.stringify(body), signal }).then(answerOf);
}

let serial = 0;

export const host = {
    start: () => ask<Start>('api/start'),
    nodes: () => ask<NodeType[]>('api/nodes'),
    files: (folder?: string) =>
        ask<Folder>(folder === undefined ? 'api/files' : `api/files?folder=${encodeURIComponent(folder)}`),

    /** Fails with status 409 and the newer text where the file has changed since. */
    async save(text: string, revision: number, force = false): Promise<number> {
        const response = await send('api/document', { text, revision, force }, 'PUT');
        return ((await response.json()) as { revision: number }).revision;
    },

    /** Waits until the file on disk changes; none where it did not for a while. */
    async change(revision: number): Promise<{ text: string; revision: number } | undefined> {
        const response = await answerOf(await fetch(`api/changes?revision=${revision}`));
        return response.status === 204 ? undefined : response.json();
    },

    async check(text: string): Promise<Check> {
        return (await send('api/check', { text })).json();
    },

    /** A newer request of a lane stops the older one, which then fails with status 409. */
    async picture(request: PictureRequest, lane: string, signal?: AbortSignal): Promise<Picture> {
        const response = await send('api/picture', { ...request, lane, serial: ++serial }, 'POST', signal);
        const number = (name: string) => Number(response.headers.get(name));
        return {
            width: number('X-Width'),
            height: number('X-Height'),
            channels: number('X-Channels'),
            milliseconds: number('X-Milliseconds'),
            data: new Float32Array(await response.arrayBuffer()),
        };
    },

    async values(request: Omit<PictureRequest, 'output'>): Promise<Record<string, Json>> {
        const response = await send('api/values', request);
        return ((await response.json()) as { outputs: Record<string, Json> }).outputs;
    },

    async cost(text: string, size: number): Promise<Cost> {
        return (await send('api/cost', { text, size })).json();
    },
};
