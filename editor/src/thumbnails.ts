// Small pictures of what nodes show, made when nothing else is asked of the command.
import { excerpt, type Graph } from './graph';
import { host, Refusal } from './host';
import { bytesOf, type Encoding } from './pixels';

const SIZE = 56;
const IDLE = 250;

interface Watched {
    link: string;
    encoding: Encoding;
    canvas: HTMLCanvasElement;
    shown?: string;
}

class Thumbnails {
    #watched = new Set<Watched>();
    #graph?: Graph;
    #timer = 0;
    #isRunning = false;

    /** Keeps a canvas up to date as long as it is on the page. */
    watch(canvas: HTMLCanvasElement, link: string, encoding: Encoding): () => void {
        if (canvas.width !== SIZE) canvas.width = canvas.height = SIZE;
        const watched = { link, encoding, canvas };
        this.#watched.add(watched);
        this.#later();
        return () => this.#watched.delete(watched);
    }

    update(graph: Graph) {
        this.#graph = graph;
        this.#later();
    }

    #later() {
        clearTimeout(this.#timer);
        this.#timer = window.setTimeout(() => void this.#run(), IDLE);
    }

    async #run() {
        if (this.#isRunning) return this.#later();
        this.#isRunning = true;
        const graph = this.#graph;
        for (const watched of this.#watched) {
            if (!graph || graph !== this.#graph) break;
            const text = excerpt(graph, watched.link);
            if (text === watched.shown) continue;
            const request = { text, output: 'preview', width: SIZE, height: SIZE };
            try {
                const picture = await host.picture(request, 'thumbnails');
                const look = { channels: 'rgba', exposure: 0, encoding: watched.encoding } as const;
                watched.canvas.getContext('2d')!.putImageData(bytesOf(picture, look), 0, 0);
            } catch (failure) {
                if (!(failure instanceof Refusal) || failure.status === 409) break;
                watched.canvas.getContext('2d')!.clearRect(0, 0, SIZE, SIZE);
            }
            watched.shown = text;
        }
        this.#isRunning = false;
        if (graph !== this.#graph) this.#later();
    }
}

export const thumbnails = new Thumbnails();
