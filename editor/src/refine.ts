// Asks for a picture: coarse at once, then whole, from the middle. What is no longer wanted is dropped.
import { host, Refusal, type Picture, type PictureRequest } from './host';

/** A part of the picture that is wanted: `step` pixels of it are one of `picture`. */
export interface Part {
    request: PictureRequest;
    x: number;
    y: number;
    w: number;
    h: number;
    step: number;
    picture: Picture;
    isLast: boolean;
}

const TILE = 512;
const COARSE = 128;

export class Refiner {
    #wanted?: PictureRequest;
    #fine?: AbortController;
    #isRunning = false;

    constructor(
        readonly lane: string,
        readonly show: (part: Part) => void,
        readonly refuse: (refusal: Refusal) => void,
        readonly middle: () => { x: number; y: number } = () => ({ x: 0.5, y: 0.5 }),
    ) {}

    /** Of requests that come faster than pictures, the last one counts. */
    want(request: PictureRequest) {
        this.#wanted = request;
        // A coarse picture is soon there and is shown, so that something moves under a slider.
        this.#fine?.abort();
        if (!this.#isRunning) void this.#run();
    }

    async #run() {
        this.#isRunning = true;
        while (this.#wanted) {
            const request = this.#wanted;
            this.#wanted = undefined;
            try {
                await this.#refine(request);
            } catch (failure) {
                if (failure instanceof Refusal && failure.status !== 409) this.refuse(failure);
                else if (failure instanceof TypeError) this.refuse(new Refusal(0, { error: 'The command has ended.' }));
            }
        }
        this.#isRunning = false;
    }

    async #refine(request: PictureRequest) {
        const { width, height } = request;
        const step = [1, 2, 4, 8].find((step) => width / step <= COARSE) ?? 8;
        if (step > 1) {
            const picture = await host.picture({ ...request, step }, this.lane);
            this.show({ request, x: 0, y: 0, w: width, h: height, step, picture, isLast: false });
            if (this.#wanted) return;
        }
        const tiles = this.#tiles(width, height);
        for (const [i, tile] of tiles.entries()) {
            this.#fine = new AbortController();
            try {
                const part = tiles.length > 1 ? { ...request, ...tile } : request;
                const picture = await host.picture(part, this.lane, this.#fine.signal);
                this.show({ request, ...tile, step: 1, picture, isLast: i === tiles.length - 1 });
            } finally {
                this.#fine = undefined;
            }
            if (this.#wanted) return;
        }
    }

    /** From the middle of what is seen outwards. */
    #tiles(width: number, height: number) {
        const tiles: { x: number; y: number; w: number; h: number }[] = [];
        for (let y = 0; y < height; y += TILE)
            for (let x = 0; x < width; x += TILE)
                tiles.push({ x, y, w: Math.min(TILE, width - x), h: Math.min(TILE, height - y) });
        const middle = this.middle();
        const away = (tile: { x: number; y: number; w: number; h: number }) =>
            Math.hypot(tile.x + tile.w / 2 - middle.x * width, tile.y + tile.h / 2 - middle.y * height);
        return tiles.sort((a, b) => away(a) - away(b));
    }
}
