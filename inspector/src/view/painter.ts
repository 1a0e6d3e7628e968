// Paints a figure.
//
// The planes of each display from the lowest to the topmost: the layer, its touch regions, the cards of its popups; over all of
// them what is pointed at, selected, or hit by a touch. The regions of a layer with many are painted once, into a picture of
// their own, and copied from then on until layer or pose change: a popup that comes up costs a copy. While a figure with very
// many regions is being turned, only outlines are drawn (raster.ts).

import type { Point, Rectangle } from '../model/documents';
import { type Figure, type FigureDisplay, figureOf, type FigureLayer } from '../model/figure';
import { type Plane, project, type Size } from '../model/geometry';
import type { HitResult } from '../model/hit';
import { flagsOf, type Item, type SceneRegion } from '../model/scene';
import { type PopupState, stateMarks, stateWords } from '../model/popup_state';
import { type Colours, word } from './colours';
import { Raster } from './raster';

export interface Shot {
    readonly figure: Figure;
    readonly size: Size;
    readonly density: number; // device pixels per pixel
    readonly colours: Colours;
    readonly flat: boolean;
    readonly moving: boolean;
    readonly stale: ReadonlySet<Item['kind']>;
    readonly hovered: string | undefined;
    readonly selected: string | undefined;
    readonly touch: { readonly display: string; readonly at: Point; readonly hits: HitResult } | undefined;
    readonly drawn: { readonly display: string; readonly layer: string; readonly bounds: Rectangle } | undefined;
    readonly grips: boolean; // the selected region can be dragged
}

const font = '11px system-ui, "DejaVu Sans", sans-serif';
const strong = '600 11px system-ui, "DejaVu Sans", sans-serif';
const many = 120; // regions of a layer that are kept as a picture
const tooMany = 2500; // regions that cannot all be painted anew for each frame

interface Kept {
    readonly regions: readonly SceneRegion[];
    readonly key: string;
    readonly picture: HTMLCanvasElement;
    readonly at: Point;
}

export class Painter {
    private readonly context: CanvasRenderingContext2D;
    private raster = new Raster(1, 1);
    private kept = new Map<string, Kept>();
    private hatches = new Map<string, CanvasPattern>();

    constructor(private readonly canvas: HTMLCanvasElement) {
        const context = canvas.getContext('2d');
        if (!context) throw new Error('this browser has no canvas');
        this.context = context;
    }

    paint(shot: Shot): void {
        const width = Math.max(Math.round(shot.size.width * shot.density), 1);
        const height = Math.max(Math.round(shot.size.height * shot.density), 1);
        if (this.canvas.width !== width || this.canvas.height !== height) {
            this.canvas.width = width;
            this.canvas.height = height;
        }
        if (shot.moving && shot.figure.regions > tooMany) this.sketch(shot);
        else this.complete(shot);
    }

    private complete(shot: Shot): void {
        const { context, canvas } = this;
        context.setTransform(1, 0, 0, 1, 0, 0);
        context.clearRect(0, 0, canvas.width, canvas.height);
        const used = new Map<string, Kept>();
        for (const display of shot.figure.displays) {
            this.ground(shot, display);
            for (const layer of display.layers) {
                this.layer(shot, display, layer);
                this.regions(shot, display, layer, used);
                this.cards(shot, layer);
            }
            this.titles(shot, display);
        }
        this.kept = used;
        this.marks(shot);
    }

    // Outlines alone.
    private sketch(shot: Shot): void {
        const { width, height } = this.canvas;
        if (this.raster.width !== width || this.raster.height !== height) this.raster = new Raster(width, height);
        const { raster } = this;
        raster.clear();
        const input = word(shot.colours.input, 110);
        const haptic = word(shot.colours.haptic, 140);
        const line = word(shot.colours.dim, 255);
        for (const { display, layers } of shot.figure.displays) {
            const whole = { x: 0, y: 0, width: display.width, height: display.height };
            for (const { plane, regions } of layers) {
                const dense = scaled(plane, shot.density);
                raster.outline(dense, whole, line);
                for (const region of regions) {
                    if (region.bounds) raster.outline(dense, region.bounds, region.haptic ? haptic : input);
                }
            }
        }
        raster.show(this.context);
        for (const display of shot.figure.displays) this.titles(shot, display);
    }

    private upon(plane: Plane, density: number): CanvasRenderingContext2D {
        this.context.setTransform(
            plane.a * density,
            plane.b * density,
            0,
            plane.d * density,
            plane.e * density,
            plane.f * density,
        );
        return this.context;
    }

    private onScreen(density: number): CanvasRenderingContext2D {
        this.context.setTransform(density, 0, 0, density, 0, 0);
        return this.context;
    }

    // The path of a rectangle, in screen coordinates, so that lines have the same width whichever way it is turned.
    private path(plane: Plane, bounds: Rectangle, context = this.context): void {
        const corner = project(plane, bounds);
        const [dx, slope, down] = [plane.a * bounds.width, plane.b * bounds.width, plane.d * bounds.height];
        context.moveTo(corner.x, corner.y);
        context.lineTo(corner.x + dx, corner.y + slope);
        context.lineTo(corner.x + dx, corner.y + slope + down);
        context.lineTo(corner.x, corner.y + down);
        context.closePath();
    }

    private stroke(plane: Plane, bounds: Rectangle, colour: string, width: number, dashes: number[] = []): void {
        const { context } = this;
        context.beginPath();
        this.path(plane, bounds);
        context.strokeStyle = colour;
        context.lineWidth = width;
        context.setLineDash(dashes);
        context.stroke();
        context.setLineDash([]);
    }

    private ground(shot: Shot, { display, layers }: FigureDisplay): void {
        const lowest = layers[0];
        if (!lowest) return;
        const context = this.onScreen(shot.density);
        const whole = { x: 0, y: 0, width: display.width, height: display.height };
        context.beginPath();
        this.path(lowest.plane, whole);
        context.fillStyle = shot.colours.screen;
        context.fill();
        this.stroke(lowest.plane, whole, shot.colours.dim, 1.5, display.sized ? [] : [6, 4]);
    }

    private layer(shot: Shot, { display }: FigureDisplay, { layer, plane }: FigureLayer): void {
        if (shot.flat) return;
        const context = this.onScreen(shot.density);
        const whole = { x: 0, y: 0, width: display.width, height: display.height };
        if (layer?.active) {
            context.beginPath();
            this.path(plane, whole);
            context.globalAlpha = 0.55;
            context.fillStyle = shot.colours.plane;
            context.fill();
            context.globalAlpha = 1;
        }
        this.stroke(plane, whole, shot.colours.dim, layer ? 1 : 0.75, layer?.active ? [] : [2, 4]);
    }

    private regions(
        shot: Shot,
        { display }: FigureDisplay,
        { layer, plane, regions }: FigureLayer,
        used: Map<string, Kept>,
    ): void {
        if (regions.length === 0) return;
        const dim = !layer?.active || shot.stale.has('region');
        if (regions.length < many) {
            this.paintRegions(this.context, shot, plane, regions, dim);
            return;
        }
        const name = layer?.address ?? display.address;
        const key = [
            ...Object.values(plane).map((value: number) => value.toFixed(3)),
            shot.density,
            shot.colours.input,
            dim,
        ].join();
        let kept = this.kept.get(name);
        if (kept?.key !== key || kept.regions !== regions) kept = this.keep(shot, display, plane, regions, key, dim);
        used.set(name, kept);
        this.context.setTransform(1, 0, 0, 1, 0, 0);
        this.context.drawImage(kept.picture, kept.at.x, kept.at.y);
    }

    private keep(
        shot: Shot,
        { width, height }: Size,
        plane: Plane,
        regions: readonly SceneRegion[],
        key: string,
        dim: boolean,
    ): Kept {
        const corners = [project(plane, { x: 0, y: 0 }), project(plane, { x: width, y: 0 }), project(plane, { x: 0, y: height })];
        const [origin, right, down] = corners as [Point, Point, Point];
        const at = {
            x: Math.floor(origin.x * shot.density) - 2,
            y: Math.floor(Math.min(origin.y, right.y) * shot.density) - 2,
        };
        const picture = document.createElement('canvas');
        picture.width = Math.ceil(right.x * shot.density) - at.x + 2;
        picture.height = Math.ceil((Math.max(origin.y, right.y) + down.y - origin.y) * shot.density) - at.y + 2;
        const context = picture.getContext('2d');
        if (context) {
            const moved = { ...plane, e: plane.e - at.x / shot.density, f: plane.f - at.y / shot.density };
            this.paintRegions(context, shot, moved, regions, dim);
        }
        return { regions, key, picture, at };
    }

    // The lowest first: the input manager lists the topmost first.
    private paintRegions(
        context: CanvasRenderingContext2D,
        shot: Shot,
        plane: Plane,
        regions: readonly SceneRegion[],
        dim: boolean,
    ): void {
        context.setTransform(shot.density, 0, 0, shot.density, 0, 0);
        const { colours } = shot;
        context.globalAlpha = dim ? 0.4 : 1;
        for (let i = regions.length; i-- > 0;) {
            const region = regions[i] as SceneRegion;
            if (!region.bounds) continue;
            const flags = flagsOf(region.document);
            context.beginPath();
            this.path(plane, region.bounds, context);
            if (region.haptic) {
                context.fillStyle = this.hatch(colours.haptic);
                context.fill();
            } else {
                const alpha = context.globalAlpha;
                context.globalAlpha = alpha * 0.12;
                context.fillStyle = colours.input;
                context.fill();
                context.globalAlpha = alpha;
            }
            context.strokeStyle = region.haptic ? colours.haptic : colours.input;
            context.lineWidth = flags.includes('exclusive') ? 2.25 : 1;
            context.setLineDash(region.haptic ? [5, 3] : flags.includes('dropEvent') ? [1, 2] : []);
            context.stroke();
        }
        context.setLineDash([]);
        context.globalAlpha = 1;
    }

    private hatch(colour: string): CanvasPattern | string {
        const known = this.hatches.get(colour);
        if (known) return known;
        const tile = document.createElement('canvas');
        tile.width = tile.height = 6;
        const context = tile.getContext('2d');
        if (!context) return colour;
        context.strokeStyle = colour;
        context.globalAlpha = 0.75;
        context.beginPath();
        for (const shift of [-6, 0, 6]) {
            context.moveTo(shift - 1, 7);
            context.lineTo(shift + 7, -1);
        }
        context.stroke();
        const pattern = this.context.createPattern(tile, 'repeat');
        if (pattern) this.hatches.set(colour, pattern);
        return pattern ?? colour;
    }

    private cards(shot: Shot, { layer, plane, cards }: FigureLayer): void {
        const { scale } = shot.figure.layout;
        for (const { popup, bounds } of cards) {
            const corner = project(plane, bounds);
            const onPlane = { a: plane.a / scale, b: plane.b / scale, d: plane.d / scale, e: corner.x, f: corner.y };
            const size = { width: bounds.width * scale, height: bounds.height * scale };
            const context = this.upon(onPlane, shot.density);
            context.globalAlpha = layer && !layer.active ? 0.45 : shot.stale.has('popup') ? 0.8 : 1;
            paintCard(context, shot.colours, popup.label, popup.state, size);
            context.globalAlpha = 1;
        }
    }

    private titles(shot: Shot, { display, cell, layers, omitted }: FigureDisplay): void {
        const context = this.onScreen(shot.density);
        const { colours } = shot;
        context.textBaseline = 'alphabetic';
        context.textAlign = 'left';
        context.font = strong;
        context.fillStyle = shot.stale.has('display') ? colours.dim : colours.text;
        context.fillText(display.label, cell.x, cell.y - 7);
        const after = cell.x + context.measureText(display.label).width + 8;
        const facts = [
            display.sized ? `${display.width}×${display.height}` : 'size unknown',
            ...(omitted > 0 ? [`+${omitted} popup${omitted === 1 ? '' : 's'}`] : []),
        ];
        context.font = font;
        context.fillStyle = colours.dim;
        context.fillText(shortened(context, facts.join(' · '), Math.max(cell.x + cell.width - after, 60)), after, cell.y - 7);
        if (shot.flat || shot.moving) return;
        // The names of layers, beside their upper left corners, as far as they do not run into each other.
        context.textAlign = 'right';
        let free = Infinity;
        for (const { layer, plane } of layers) {
            const corner = project(plane, { x: 0, y: display.height });
            if (corner.y > free) continue;
            free = corner.y - 10;
            const zpos = layer?.document['zpos'];
            const words = layer
                ? `${layer.label}${layer.active ? '' : ', off'}${typeof zpos === 'number' ? `  z ${zpos}` : ''}`
                : 'on no layer';
            context.fillStyle = colours.dim;
            context.fillText(words, corner.x - 5, corner.y - 2);
        }
    }

    private marks(shot: Shot): void {
        const { colours, figure } = shot;
        this.onScreen(shot.density);
        const outline = (address: string, width: number): void => {
            const spot = spotOf(figure, address);
            if (!spot) return;
            this.stroke(spot.plane, spot.bounds, colours.panel, width + 3);
            this.stroke(spot.plane, spot.bounds, colours.accent, width);
            if (!shot.grips || address !== shot.selected) return;
            for (const grip of gripsOf(spot.bounds)) this.grip(shot, spot.plane, grip);
        };
        if (shot.hovered !== undefined && shot.hovered !== shot.selected) outline(shot.hovered, 1.5);
        if (shot.selected !== undefined) outline(shot.selected, 3);
        const { touch, drawn } = shot;
        const touched = touch && figureOf(figure, touch.display);
        if (touched) this.touch(shot, touched, touch);
        const under = drawn && figureOf(figure, drawn.display);
        const target = under?.layers.find(({ layer }) => layer?.address === drawn?.layer);
        if (drawn && target) this.stroke(target.plane, drawn.bounds, colours.accent, 2, [4, 3]);
    }

    private grip({ colours }: Shot, plane: Plane, at: Point): void {
        const { x, y } = project(plane, at);
        this.context.fillStyle = colours.panel;
        this.context.fillRect(x - 4, y - 4, 8, 8);
        this.context.strokeStyle = colours.accent;
        this.context.lineWidth = 1.5;
        this.context.strokeRect(x - 4, y - 4, 8, 8);
    }

    private touch({ colours }: Shot, { display, layers }: FigureDisplay, { at, hits }: NonNullable<Shot['touch']>): void {
        const outline = (index: number, colour: string, width: number, dashes: number[]): void => {
            const region = display.input[index];
            const layer = region && layers.find(({ regions }) => regions.includes(region));
            if (layer && region.bounds) this.stroke(layer.plane, region.bounds, colour, width, dashes);
        };
        for (const hit of hits.notified) outline(hit.region, colours.wanting, 2, [2, 3]);
        for (const hit of [...hits.under].reverse()) {
            outline(
                hit.region,
                hit.fate === 'receives' ? colours.shown : colours.lost,
                hit.fate === 'receives' ? 3 : 2,
                hit.fate === 'receives' ? [] : [6, 4],
            );
        }
        const { context } = this;
        for (const { plane } of layers.slice(-1)) {
            const { x, y } = project(plane, { x: at.x + 0.5, y: at.y + 0.5 });
            for (const [colour, width] of [
                [colours.panel, 4],
                [colours.text, 1.5],
            ] as const) {
                context.strokeStyle = colour;
                context.lineWidth = width;
                context.beginPath();
                context.moveTo(x - 12, y);
                context.lineTo(x + 12, y);
                context.moveTo(x, y - 12);
                context.lineTo(x, y + 12);
                context.stroke();
                context.beginPath();
                context.arc(x, y, 6, 0, 2 * Math.PI);
                context.stroke();
            }
        }
    }
}

function scaled({ a, b, d, e, f }: Plane, by: number): Plane {
    return { a: a * by, b: b * by, d: d * by, e: e * by, f: f * by };
}

// The middle of a rectangle's right and lower edge, and the corner between them.
export function gripsOf({ x, y, width, height }: Rectangle): [Point, Point, Point] {
    return [
        { x: x + width, y: y + height },
        { x: x + width, y: y + height / 2 },
        { x: x + width / 2, y: y + height },
    ];
}

// Where the item of an address lies in the figure.
export function spotOf(figure: Figure, address: string): { plane: Plane; bounds: Rectangle } | undefined {
    for (const { display, layers } of figure.displays) {
        const whole = { x: 0, y: 0, width: display.width, height: display.height };
        if (display.address === address && layers[0]) return { plane: layers[0].plane, bounds: whole };
        for (const { layer, plane, regions, cards } of layers) {
            if (layer?.address === address) return { plane, bounds: whole };
            const card = address.startsWith('/popups/') && cards.find(({ popup }) => popup.address === address);
            if (card) return { plane, bounds: card.bounds };
            const region = address.startsWith('/input/') && regions.find((each) => each.address === address);
            if (region) return region.bounds && { plane, bounds: region.bounds };
        }
    }
    return undefined;
}

const cardLines: Record<PopupState, number[]> = { shown: [], active: [], wanting: [5, 3], suppressed: [1, 3], idle: [] };

function shortened(context: CanvasRenderingContext2D, words: string, width: number): string {
    if (context.measureText(words).width <= width) return words;
    let kept = 3;
    for (let most = words.length - 1; kept < most;) {
        const middle = (kept + most + 1) >> 1;
        if (context.measureText(`${words.slice(0, middle)}…`).width > width) most = middle - 1;
        else kept = middle;
    }
    return `${words.slice(0, kept)}…`;
}

function paintCard(
    context: CanvasRenderingContext2D,
    colours: Colours,
    label: string,
    state: PopupState,
    { width, height }: Size,
): void {
    const tint = {
        shown: colours.shown,
        active: colours.shown,
        wanting: colours.wanting,
        suppressed: colours.suppressed,
        idle: colours.dim,
    }[state];
    const high = height > 20;
    context.fillStyle = colours.card;
    context.beginPath();
    context.roundRect(0, 0, width, height, 3);
    context.fill();
    // The bar at the left is full for what is on the screen, half for what has its slot, and missing for what has not.
    context.fillStyle = tint;
    if (state === 'shown') context.fillRect(0, 0, 4, height);
    if (state === 'active') context.fillRect(0, height / 2, 4, height / 2);
    context.strokeStyle = tint;
    context.lineWidth = state === 'idle' ? 0.75 : state === 'shown' ? 1.75 : 1.25;
    context.setLineDash(cardLines[state]);
    context.stroke();
    context.setLineDash([]);
    context.textAlign = 'left';
    context.textBaseline = 'middle';
    context.font = state === 'idle' ? font : strong;
    context.fillStyle = state === 'idle' ? colours.dim : colours.text;
    context.fillText(
        shortened(context, `${stateMarks[state]} ${label}`, width - 12),
        8,
        high ? height * 0.3 + 1 : height / 2 + 1,
    );
    if (!high) return;
    context.font = font;
    context.fillStyle = tint;
    context.fillText(stateWords[state], 19, height * 0.72 + 1, width - 24);
}
