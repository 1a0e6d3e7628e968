// The picture: a canvas that is painted when something it shows has changed, and what can be done on it.
//
// Mouse, pen and fingers: pointing shows what is there, a click selects it, another click at the same place what lies beneath.
// Pulled apart, dragging turns the displays. In a hit test pointing moves the touch and a click holds it. With changes allowed,
// a rectangle is drawn in the drawing mode, and a selected touch region is dragged and resized by its grips.

import { effect, signal } from '@preact/signals';
import { useLayoutEffect, useRef } from 'preact/hooks';

import type { Point, Rectangle } from '../model/documents';
import { type Figure, figureOf, locate, makeFigure, pick } from '../model/figure';
import { apartPose, flatPose, type Plane, type Pose, turned, unproject } from '../model/geometry';
import * as store from '../store';
import { type Colours, readColours } from './colours';
import { changeRegion, drawing } from './editing';
import { gripsOf, Painter, spotOf } from './painter';

// Milliseconds without motion, after a frame was painted, until a large figure is painted completely. That takes long, so a pause
// of the hand that drags, or of the machine, must not count as the end.
const settled = { free: 150, dragged: 600 };
const reach = 9; // how near a pointer must come to a grip

interface Drag {
    readonly kind: 'turn' | 'draw' | 'move' | 'corner' | 'right' | 'bottom';
    readonly from: Point; // on the screen
    readonly plane?: Plane;
    readonly bounds?: Rectangle; // at the start
    readonly pose: Pose;
    moved: boolean;
}

const dragged = signal<{ display: string; layer: string; bounds: Rectangle } | undefined>(undefined);
const size = signal({ width: 0, height: 0 });
const moving = signal(false);

class View {
    private readonly painter: Painter;
    private figure: Figure = { layout: { scale: 1, columns: 1, cells: [] }, displays: [], regions: 0 };
    private colours: { readonly dark: boolean; readonly all: Colours } | undefined;
    private columns: { key: string; count: number } = { key: '', count: 1 };
    private isDue = false; // it is to be painted
    private drag: Drag | undefined;
    private rest = 0;
    private posing = 0;
    private readonly stops: (() => void)[] = [];

    constructor(private readonly canvas: HTMLCanvasElement) {
        this.painter = new Painter(canvas);
        // Painted at once, so that no frame shows it empty or stretched.
        const resized = new ResizeObserver(() => {
            size.value = { width: canvas.clientWidth, height: canvas.clientHeight };
            this.paint();
        });
        resized.observe(canvas);
        this.stops.push(
            () => resized.disconnect(),
            effect(() => {
                this.depend();
                this.want();
            }),
            effect(() => this.takePose(store.apart.value ? apartPose : flatPose)),
        );
    }

    stop(): void {
        this.isDue = false;
        cancelAnimationFrame(this.posing);
        for (const each of this.stops) each();
    }

    // What painting depends on.
    private depend(): void {
        const { scene, onlyDisplay, pose, hovered, selected, mode, probe, hits, dark, mayChange } = store;
        const all = [scene, onlyDisplay, pose, hovered, selected, mode, probe, hits, dark, mayChange, dragged, size, moving];
        for (const each of all) void each.value;
        void drawing.value;
    }

    // Moves to a pose, in a fifth of a second where motion is welcome.
    private takePose(wanted: Pose): void {
        cancelAnimationFrame(this.posing);
        const from = store.pose.peek();
        if (from.spread === wanted.spread) return;
        if (matchMedia('(prefers-reduced-motion: reduce)').matches || this.figure.displays.length === 0) {
            store.pose.value = wanted;
            return;
        }
        const begun = performance.now();
        const go = (time: number): void => {
            const part = Math.min(Math.max((time - begun) / 200, 0), 1);
            const eased = part * (2 - part);
            const between = (a: number, b: number): number => a + (b - a) * eased;
            store.pose.value = {
                yaw: between(from.yaw, wanted.yaw),
                pitch: between(from.pitch, wanted.pitch),
                spread: between(from.spread, wanted.spread),
            };
            this.stir();
            if (part < 1) this.posing = requestAnimationFrame(go);
        };
        this.posing = requestAnimationFrame(go);
    }

    private stir(): void {
        moving.value = true;
        this.settle();
    }

    private settle(): void {
        clearTimeout(this.rest);
        this.rest = window.setTimeout(() => (moving.value = false), this.drag ? settled.dragged : settled.free);
    }

    // Changes come in a frame, or shortly before one: to wait for a frame would show them one frame late. A page that nobody sees
    // has no frames; it is painted when it is seen.
    private want(): void {
        if (this.isDue) return;
        this.isDue = true;
        const paint = (): void => {
            if (this.isDue) this.paint();
        };
        if (document.visibilityState === 'visible') queueMicrotask(paint);
        else requestAnimationFrame(paint);
    }

    private paint(): void {
        this.isDue = false;
        if (size.value.width === 0) return; // not laid out yet
        const scene = store.scene.value;
        const pose = store.pose.value;
        const key = [
            store.onlyDisplay.value,
            scene.displays.length,
            size.value.width,
            size.value.height,
            store.apart.value,
        ].join();
        const keep = this.columns.key === key && pose.spread === 1;
        this.figure = makeFigure(scene, store.onlyDisplay.value, size.value, pose, keep ? this.columns.count : undefined);
        this.columns = { key, count: this.figure.layout.columns };
        const dark = store.dark.value;
        if (this.colours?.dark !== dark) this.colours = { dark, all: readColours() };
        const at = store.probe.value;
        const hits = store.hits.value;
        const testing = store.mode.value === 'hit' && at && hits;
        const draft = drawing.value;
        this.painter.paint({
            figure: this.figure,
            size: size.value,
            density: devicePixelRatio,
            colours: this.colours.all,
            flat: pose.spread === 0,
            moving: moving.value,
            stale: scene.stale,
            hovered: store.hovered.value,
            selected: store.selected.value,
            touch: testing ? { display: at.display, at, hits } : undefined,
            drawn: dragged.value ?? (store.mode.value === 'draw' ? draft : undefined),
            grips: this.grippable() !== undefined,
        });
        if (moving.value) this.settle();
    }

    // The selected touch region, if it can be dragged.
    private grippable(): { plane: Plane; bounds: Rectangle } | undefined {
        const item = store.selectedItem.peek();
        const possible = store.mayChange.peek() && !store.apart.peek() && store.mode.peek() === 'look';
        return possible && item?.kind === 'region' ? spotOf(this.figure, item.address) : undefined;
    }

    private at(event: PointerEvent): Point {
        const box = this.canvas.getBoundingClientRect();
        return { x: event.clientX - box.left, y: event.clientY - box.top };
    }

    private begin(at: Point): Drag {
        const base = { from: at, pose: store.pose.peek(), moved: false };
        if (store.mode.peek() === 'draw') {
            const draft = drawing.peek();
            const target = figureOf(this.figure, draft.display)?.layers.find(({ layer }) => layer?.address === draft.layer);
            if (target) return { ...base, kind: 'draw', plane: target.plane };
        }
        const spot = this.grippable();
        if (spot) {
            const point = unproject(spot.plane, at);
            const near = gripsOf(spot.bounds).findIndex(
                (grip) => Math.hypot(grip.x - point.x, grip.y - point.y) * this.figure.layout.scale < reach,
            );
            const inside = pick(this.figure, at).some((item) => item.address === store.selected.peek());
            const kind = (['corner', 'right', 'bottom'] as const)[near] ?? (inside ? 'move' : undefined);
            if (kind) return { ...base, ...spot, kind };
        }
        return { ...base, kind: 'turn' };
    }

    readonly down = (event: PointerEvent): void => {
        if (event.button !== 0) return;
        this.canvas.setPointerCapture(event.pointerId);
        this.drag = this.begin(this.at(event));
    };

    readonly move = (event: PointerEvent): void => {
        const at = this.at(event);
        const { drag } = this;
        if (drag && (drag.moved || Math.hypot(at.x - drag.from.x, at.y - drag.from.y) > 3)) {
            drag.moved = true;
            if (drag.kind === 'turn') this.turn(drag, at);
            else this.resize(drag, at);
            return;
        }
        if (store.mode.peek() === 'hit') {
            if (!store.pinned.peek()) this.touch(at);
            return;
        }
        store.hovered.value = pick(this.figure, at)[0]?.address;
    };

    private turn(drag: Drag, at: Point): void {
        if (!store.apart.peek()) return;
        this.stir();
        store.pose.value = turned(drag.pose, (at.x - drag.from.x) * 0.006, (at.y - drag.from.y) * -0.006);
    }

    private resize(drag: Drag, at: Point): void {
        const { plane, kind } = drag;
        if (!plane) return;
        const a = unproject(plane, drag.from);
        const b = unproject(plane, at);
        const [dx, dy] = [Math.round(b.x - a.x), Math.round(b.y - a.y)];
        if (kind === 'draw') {
            const bounds = {
                x: Math.round(Math.min(a.x, b.x)),
                y: Math.round(Math.min(a.y, b.y)),
                width: Math.abs(dx),
                height: Math.abs(dy),
            };
            drawing.value = { ...drawing.peek(), bounds };
            return;
        }
        const { bounds } = drag;
        const item = store.selectedItem.peek();
        const display =
            item &&
            this.figure.displays.find((each) => each.layers.some(({ regions }) => regions.some((region) => region === item)));
        const layer = display?.layers.find(({ regions }) => regions.some((region) => region === item))?.layer;
        if (!bounds || !display || !layer) return;
        const wider = kind === 'corner' || kind === 'right' ? dx : 0;
        const taller = kind === 'corner' || kind === 'bottom' ? dy : 0;
        dragged.value = {
            display: display.display.label,
            layer: layer.address,
            bounds: {
                x: kind === 'move' ? bounds.x + dx : bounds.x,
                y: kind === 'move' ? bounds.y + dy : bounds.y,
                width: Math.max(bounds.width + wider, 1),
                height: Math.max(bounds.height + taller, 1),
            },
        };
    }

    readonly up = (event: PointerEvent): void => {
        const { drag } = this;
        this.drag = undefined;
        if (!drag) return;
        if (!drag.moved) this.click(this.at(event));
        const result = dragged.peek();
        const item = store.selectedItem.peek();
        if (drag.moved && result && item?.kind === 'region') {
            void changeRegion(item, { bounds: result.bounds }).finally(() => (dragged.value = undefined));
        }
    };

    readonly leave = (): void => {
        store.hovered.value = undefined;
    };

    private click(at: Point): void {
        if (store.mode.peek() === 'hit') {
            this.touch(at);
            store.pinned.value = !store.pinned.peek();
            return;
        }
        const there = pick(this.figure, at);
        const known = there.findIndex((item) => item.address === store.selected.peek());
        store.selected.value = there[(known + 1) % Math.max(there.length, 1)]?.address;
    }

    private touch(at: Point): void {
        const found = locate(this.figure, at);
        if (found) store.probe.value = { display: found.display.label, ...found.point };
    }

    readonly key = (event: KeyboardEvent): void => {
        const by = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] }[event.key];
        if (!by || event.ctrlKey || event.altKey || event.metaKey) return;
        const [x = 0, y = 0] = by;
        const probe = store.probe.peek();
        if (store.mode.peek() === 'hit' && probe) {
            const far = event.shiftKey ? 10 : 1;
            store.probe.value = { ...probe, x: probe.x + far * x, y: probe.y + far * y };
            store.pinned.value = true;
        } else if (store.apart.peek()) {
            this.stir();
            store.pose.value = turned(store.pose.peek(), x * 0.08, y * -0.08);
        } else {
            return;
        }
        event.preventDefault();
    };
}

export function Picture() {
    const canvas = useRef<HTMLCanvasElement>(null);
    const view = useRef<View>();
    useLayoutEffect(() => {
        if (!canvas.current) return undefined;
        const made = new View(canvas.current);
        view.current = made;
        return () => made.stop();
    }, []);
    const names = store.scene.value.displays.map((display) => display.label).join(', ');
    const cursor = { look: store.apart.value ? 'grab' : 'default', hit: 'crosshair', draw: 'crosshair' }[store.mode.value];
    return (
        <canvas
            class={`picture ${cursor}`}
            ref={canvas}
            tabIndex={0}
            role="img"
            aria-label={`The displays ${names}. The tree has the same as text; arrow keys turn the layers when they are pulled apart, and move the touch in a hit test.`}
            onPointerDown={(event) => view.current?.down(event)}
            onPointerMove={(event) => view.current?.move(event)}
            onPointerUp={(event) => view.current?.up(event)}
            onPointerCancel={() => view.current?.leave()}
            onPointerLeave={() => view.current?.leave()}
            onKeyDown={(event) => view.current?.key(event)}
        />
    );
}
