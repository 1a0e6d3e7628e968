// Outlines of very many rectangles, drawn into memory.
//
// A canvas takes five microseconds for a rectangle that is not upright, so tens of thousands cannot be drawn while they are being
// turned. Their outlines alone, without smoothing, take a fiftieth of that here: enough for as long as something moves.

import type { Rectangle } from '../model/documents';
import type { Plane } from '../model/geometry';

export class Raster {
    private readonly image: ImageData;
    private readonly words: Uint32Array;

    constructor(
        readonly width: number,
        readonly height: number,
    ) {
        this.image = new ImageData(width, height);
        this.words = new Uint32Array(this.image.data.buffer);
    }

    clear(): void {
        this.words.fill(0);
    }

    outline(plane: Plane, { x, y, width, height }: Rectangle, colour: number): void {
        const left = plane.a * x + plane.e;
        const top = plane.b * x + plane.d * y + plane.f;
        const right = left + plane.a * width;
        const slope = plane.b * width;
        const down = plane.d * height;
        this.edge(left, top, right, top + slope, colour);
        this.edge(left, top + down, right, top + down + slope, colour);
        this.upright(left, top, down, colour);
        this.upright(right, top + slope, down, colour);
    }

    show(context: CanvasRenderingContext2D): void {
        context.putImageData(this.image, 0, 0);
    }

    // From left to right; planes are never turned so far that one edge is steep and the other is not seen.
    private edge(x0: number, y0: number, x1: number, y1: number, colour: number): void {
        const steps = Math.ceil(Math.max(Math.abs(x1 - x0), Math.abs(y1 - y0)));
        const dx = (x1 - x0) / steps;
        const dy = (y1 - y0) / steps;
        for (let i = 0; i < steps; ++i) {
            const x = (x0 + i * dx) | 0;
            const y = (y0 + i * dy) | 0;
            if (x >= 0 && x < this.width && y >= 0 && y < this.height) this.words[y * this.width + x] = colour;
        }
    }

    private upright(at: number, top: number, length: number, colour: number): void {
        const x = at | 0;
        if (x < 0 || x >= this.width) return;
        const last = Math.min(this.height - 1, (top + length) | 0);
        for (let y = Math.max(0, top | 0); y <= last; ++y) this.words[y * this.width + x] = colour;
    }
}
