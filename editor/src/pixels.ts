// From values of 32 bits to what a screen shows.
import type { Picture } from './host';

export type Encoding = 'color' | 'data' | 'normal';
export type Channels = 'rgba' | 'rgb' | 'r' | 'g' | 'b' | 'a' | 'luminance';

export interface Look {
    channels: Channels;
    /** In stops. */
    exposure: number;
    encoding: Encoding;
}

/** The transfer function of sRGB, of values from 0 to 1. */
export const encoded = (x: number) => (x <= 0.0031308 ? 12.92 * x : 1.055 * x ** (1 / 2.4) - 0.055);
export const decoded = (x: number) => (x <= 0.04045 ? x / 12.92 : ((x + 0.055) / 1.055) ** 2.4);

const STEPS = 1 << 14;
const tableOf = (bytes: (x: number) => number) =>
    Uint8Array.from({ length: STEPS + 1 }, (_, i) => Math.round(255 * bytes(i / STEPS)));
const SRGB = tableOf(encoded);
const LINEAR = tableOf((x) => x);

/** What a pixel holds, channel by channel. */
export function valueAt(picture: Picture, x: number, y: number): number[] {
    const start = (y * picture.width + x) * picture.channels;
    return [...picture.data.subarray(start, start + picture.channels)];
}

/** Which of the picture's channels show as red, green, blue and alpha; -1 is none. */
function shownChannels(count: number, channels: Channels): [number, number, number, number] {
    const single = { r: 0, g: 1, b: 2, a: 3 }[channels as string];
    if (count === 1) return [0, 0, 0, -1];
    if (single !== undefined) return single < count ? [single, single, single, -1] : [-1, -1, -1, -1];
    if (count === 2) return [0, 1, -1, -1];
    return [0, 1, 2, channels === 'rgba' && count === 4 ? 3 : -1];
}

/** The bytes of a picture for a canvas, unmultiplied. Alpha is shown as it is. */
export function bytesOf(picture: Picture, look: Look): ImageData {
    const { width, height, channels: count } = picture;
    const image = new ImageData(width, height);
    const pixels = new Uint32Array(image.data.buffer);
    const isAlpha = look.channels === 'a';
    const table = look.encoding === 'color' && !isAlpha ? SRGB : LINEAR;
    const isNormal = look.encoding === 'normal' && !isAlpha;
    const factor = (isAlpha ? 1 : 2 ** look.exposure) * (isNormal ? 0.5 : 1);
    const offset = isNormal ? 0.5 : 0;
    const isLuminance = look.channels === 'luminance' && count > 2;
    const data = isLuminance ? luminance(picture) : picture.data;
    const step = isLuminance ? 1 : count;
    const [red, green, blue, alpha] = shownChannels(step, look.channels);
    const isGrey = red === green && green === blue;
    // Not a number shows as black, as the command writes it.
    const byte = (value: number) => (value > 0 ? (value < 1 ? table[(value * STEPS + 0.5) | 0]! : 255) : 0);
    for (let i = 0, at = 0; i < pixels.length; i++, at += step) {
        const r = red < 0 ? 0 : byte(data[at + red]! * factor + offset);
        const g = isGrey ? r : green < 0 ? 0 : byte(data[at + green]! * factor + offset);
        const b = isGrey ? r : blue < 0 ? 0 : byte(data[at + blue]! * factor + offset);
        const a = alpha < 0 ? 255 : (Math.min(Math.max(data[at + alpha]!, 0), 1) * 255 + 0.5) | 0;
        pixels[i] = (a << 24) | (b << 16) | (g << 8) | r;
    }
    return image;
}

function luminance({ data, channels, width, height }: Picture): Float32Array {
    const grey = new Float32Array(width * height);
    for (let i = 0, at = 0; i < grey.length; i++, at += channels)
        grey[i] = 0.2125 * data[at]! + 0.7154 * data[at + 1]! + 0.0721 * data[at + 2]!;
    return grey;
}

export function canvasOf(image: ImageData): HTMLCanvasElement {
    const canvas = document.createElement('canvas');
    canvas.width = image.width;
    canvas.height = image.height;
    canvas.getContext('2d')!.putImageData(image, 0, 0);
    return canvas;
}

/** A number as people read it, with what a double of it needs at most. */
export function shortNumber(value: number): string {
    if (!Number.isFinite(value)) return String(value);
    return String(Number(value.toPrecision(6)));
}

type Triple = [number, number, number];

/** Hue, saturation and value, each from 0 to 1, of encoded red, green and blue. */
export function hsvOf([r, g, b]: Triple): Triple {
    const most = Math.max(r, g, b);
    const span = most - Math.min(r, g, b);
    if (!span) return [0, 0, most];
    const hue = most === r ? (g - b) / span : most === g ? 2 + (b - r) / span : 4 + (r - g) / span;
    return [(hue / 6 + 1) % 1, span / most, most];
}

export function rgbOf([hue, saturation, value]: Triple): Triple {
    const part = (n: number) => {
        const k = (n + hue * 6) % 6;
        return value - value * saturation * Math.max(0, Math.min(k, 4 - k, 1));
    };
    return [part(5), part(3), part(1)];
}

const clamped = (x: number) => Math.min(Math.max(x, 0), 1);

/** Linear values as CSS shows them. */
export function cssColor(linear: number[]): string {
    const [r = 0, g = r, b = r, a = 1] = linear;
    const bytes = [r, g, b].map((x) => Math.round(255 * encoded(clamped(x))));
    return `rgb(${bytes.join(' ')} / ${clamped(a)})`;
}

export const hexOf = (linear: number[]) =>
    `#${linear
        .slice(0, 3)
        .map((x) =>
            Math.round(255 * encoded(clamped(x)))
                .toString(16)
                .padStart(2, '0'),
        )
        .join('')}`;

export function linearOf(hex: string): Triple | undefined {
    const match = /^#?([\da-f]{2})([\da-f]{2})([\da-f]{2})$/i.exec(hex.trim());
    if (!match) return undefined;
    return match.slice(1).map((part) => Number(decoded(parseInt(part, 16) / 255).toPrecision(6))) as Triple;
}
