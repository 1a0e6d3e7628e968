// The picture before it is painted: which planes there are and what lies where on them, and what is at a point of the screen.

import type { Point, Rectangle } from './documents';
import { type Body, layOut, type Layout, type Plane, planeAt, type Pose, type Size, unproject } from './geometry';
import { holds } from './hit';
import type { Item, Scene, SceneDisplay, SceneLayer, ScenePopup, SceneRegion } from './scene';

export interface Card {
    readonly popup: ScenePopup;
    readonly bounds: Rectangle; // on the display
}

export interface FigureLayer {
    readonly layer: SceneLayer | undefined; // nothing: what is on none of the display's layers
    readonly plane: Plane;
    readonly regions: readonly SceneRegion[];
    readonly cards: readonly Card[];
}

export interface FigureDisplay {
    readonly display: SceneDisplay;
    readonly cell: Rectangle;
    readonly layers: readonly FigureLayer[]; // the lowest first
    readonly omitted: number; // popups that are not requested and have no room for a card
}

export interface Figure {
    readonly layout: Layout;
    readonly displays: readonly FigureDisplay[];
    readonly regions: number;
}

// Cards have a size on the screen, whatever the scale: they are read.
const cardHeight = 30;
const lowCardHeight = 17; // on small displays
const smallestCard = 96;
const largestCard = 150;

// Popups have no position of their own. Their cards fill a grid, so that no two of a display cover each other on any layer. Of a
// display that is pulled apart, those on no layer begin at the right, where they do not hide the cards below.
function cardsOf(
    display: SceneDisplay,
    scale: number,
    flat: boolean,
): { cards: ReadonlyMap<ScenePopup, Rectangle>; omitted: number } {
    const popups = [...display.layers, display].flatMap((each) => each.popups);
    const width = Math.min(Math.max(0.24 * display.width * scale, smallestCard), largestCard) / scale;
    const height = (display.height * scale < 170 ? lowCardHeight : cardHeight) / scale;
    const space = 5 / scale;
    const columns = Math.max(Math.floor((display.width - space) / (width + space)), 1);
    const rows = Math.max(Math.floor((display.height - space) / (height + space)), 1);
    const room = columns * rows;
    const wanted = popups.length <= room ? popups : popups.filter((popup) => popup.state !== 'idle');
    const cards = new Map<ScenePopup, Rectangle>();
    wanted.slice(0, room).forEach((popup, i) => {
        const along = space + (i % columns) * (width + space);
        const x = flat || !display.popups.includes(popup) ? along : display.width - along - width;
        const y = space + Math.floor(i / columns) * (height + space);
        cards.set(popup, { x, y, width, height });
    });
    return { cards, omitted: popups.length - cards.size };
}

function bodyOf(display: SceneDisplay): Body {
    const loose = display.popups.length + display.regions.length > 0 ? 1 : 0;
    return { width: display.width, height: display.height, layers: Math.max(display.layers.length + loose, 1) };
}

// `only`: the name of the one display that is shown. `columns`: see layOut.
export function makeFigure(scene: Scene, only: string | undefined, area: Size, pose: Pose, columns?: number): Figure {
    const chosen = scene.displays.filter((display) => only === undefined || display.label === only);
    const bodies = chosen.map(bodyOf);
    const layout = layOut(bodies, area, pose, columns);
    let regions = 0;
    const displays = chosen.map((display, i): FigureDisplay => {
        const body = bodies[i] as Body;
        const cell = layout.cells[i] as Layout['cells'][number];
        const { cards, omitted } = cardsOf(display, layout.scale, pose.spread === 0);
        const places: { layer?: SceneLayer; popups: readonly ScenePopup[]; regions: readonly SceneRegion[] }[] = display.layers
            .map((layer) => ({ layer, popups: layer.popups, regions: layer.regions }))
            .reverse();
        if (body.layers > places.length) places.push({ popups: display.popups, regions: display.regions });
        const layers = places.map((place, level): FigureLayer => {
            regions += place.regions.length;
            const own = place.popups.flatMap((popup) => {
                const bounds = cards.get(popup);
                return bounds ? [{ popup, bounds }] : [];
            });
            return {
                layer: place.layer,
                plane: planeAt(body, pose, layout, cell.centre, level),
                regions: place.regions,
                cards: own,
            };
        });
        return { display, cell, layers, omitted };
    });
    return { layout, displays, regions };
}

// What is at that point of the screen, the nearest first: of each plane its cards, regions, and the layer itself.
export function pick(figure: Figure, at: Point): Item[] {
    const found: Item[] = [];
    for (const { display, layers } of figure.displays) {
        for (const { layer, plane, regions, cards } of [...layers].reverse()) {
            const point = unproject(plane, at);
            if (!holds({ x: 0, y: 0, width: display.width, height: display.height }, point)) continue;
            for (const { popup, bounds } of cards) if (holds(bounds, point)) found.push(popup);
            for (const region of regions) if (holds(region.bounds, point)) found.push(region);
            if (layer) found.push(layer);
        }
        if (found.length > 0) return [...found, display];
    }
    return found;
}

// The display whose layer at `level` (the lowest if none is named) has that point of the screen, and where on it.
export function locate(figure: Figure, at: Point): { display: SceneDisplay; point: Point } | undefined {
    for (const { display, layers } of figure.displays) {
        for (const { plane } of [...layers].reverse()) {
            const point = unproject(plane, at);
            if (holds({ x: 0, y: 0, width: display.width, height: display.height }, point)) {
                return { display, point: { x: Math.floor(point.x), y: Math.floor(point.y) } };
            }
        }
    }
    return undefined;
}

export function figureOf(figure: Figure, display: string): FigureDisplay | undefined {
    return figure.displays.find((each) => each.display.label === display);
}
