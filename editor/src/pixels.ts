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
/** Rounded as the command rounds bytes: by the nearest. */
const SRGB = Uint8ClampedArray.from({ length: STEPS + 1 }, (_, i) => Math.round(255 * encoded(i / STEPS)));

/** What a pixel holds, channel by channel. */
export function valueAt(picture: Picture, x: number, y: number): number[] {
    const start = (y * picture.width + x) * picture.channels;
    return [...picture.data.subarray(start, start + picture.channels)];
}

/** The bytes of a picture for a canvas, unmultiplied. */
export function bytesOf(picture: Picture, look: Look): ImageData {
    const { width, height, channels, data } = picture;
    const image = new ImageData(width, height);
    const bytes = image.data;
    const scale = 2 ** look.exposure;
    const isColor = look.encoding === 'color';
    const half = look.encoding === 'normal' ? 0.5 : 0;
    const factor = look.encoding === 'normal' ? 0.5 : 1;
    const byte = (value: number) => {
        const scaled = value * scale * factor + half;
        // Not a number shows as black, as the command writes it.
        if (!(scaled > 0)) return 0;
        if (scaled >= 1) return 255;
        return isColor ? SRGB[(scaled * STEPS + 0.5) | 0]! : (scaled * 255 + 0.5) | 0;
    };
    const grey = channels < 2 ? [0, 0, 0] : channels === 2 ? [0, 1, -1] : [0, 1, 2];
    const single = { r: 0, g: 1, b: 2, a: 3 }[look.channels as string];
    const hasAlpha = look.channels === 'rgba' && channels === 4;
    for (let pixel = 0, at = 0; pixel < width * height; pixel++, at += channels) {
        const to = pixel * 4;
        if (single !== undefined && channels > 1) {
            const value = single < channels ? data[at + single]! : single === 3 ? 1 : 0;
            const shown = single === 3 ? Math.min(Math.max(value, 0), 1) * 255 + 0.5 : byte(value);
            bytes[to] = bytes[to + 1] = bytes[to + 2] = shown;
        } else if (look.channels === 'luminance' && channels > 2) {
            const value = 0.2125 * data[at]! + 0.7154 * data[at + 1]! + 0.0721 * data[at + 2]!;
            bytes[to] = bytes[to + 1] = bytes[to + 2] = byte(value);
        } else {
            for (let i = 0; i < 3; i++) bytes[to + i] = grey[i]! < 0 ? 0 : byte(data[at + grey[i]!]!);
        }
        bytes[to + 3] = hasAlpha ? (Math.min(Math.max(data[at + 3]!, 0), 1) * 255 + 0.5) | 0 : 255;
    }
    return image;
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
