// Where things are in the picture: displays beside each other, to one scale, with their layers flat or pulled apart and turned.
//
// Layers are parallel planes and the view has no perspective, so each plane is drawn by one affine map. It is the same map for
// drawing and, inverted, for what is under the pointer. A plane's `depth` is its distance before the lowest one, in pixels of the
// display. Angles stay below a right angle: the topmost layer is always nearest.

import type { Point, Rectangle } from './documents';

export interface Pose {
    readonly yaw: number; // radians, about the vertical axis
    readonly pitch: number;
    readonly spread: number; // 0: flat; 1: pulled apart
}

export const flatPose: Pose = { yaw: 0, pitch: 0, spread: 0 };
export const apartPose: Pose = { yaw: 0.62, pitch: 0.42, spread: 1 };

const steepest = 1.25;

export function turned(pose: Pose, yaw: number, pitch: number): Pose {
    const limited = (angle: number): number => Math.min(Math.max(angle, -steepest), steepest);
    return { ...pose, yaw: limited(pose.yaw + yaw), pitch: limited(pose.pitch + pitch) };
}

// x' = a x + e, y' = b x + d y + f: upright edges stay upright.
export interface Plane {
    readonly a: number;
    readonly b: number;
    readonly d: number;
    readonly e: number;
    readonly f: number;
}

export function project(plane: Plane, at: Point): Point {
    return { x: plane.a * at.x + plane.e, y: plane.b * at.x + plane.d * at.y + plane.f };
}

export function unproject(plane: Plane, at: Point): Point {
    const x = (at.x - plane.e) / plane.a;
    return { x, y: (at.y - plane.f - plane.b * x) / plane.d };
}

export interface Size {
    readonly width: number;
    readonly height: number;
}

export interface Body extends Size {
    readonly layers: number;
}

// The distance between two planes of a display.
export function gap(body: Body, pose: Pose): number {
    const between = Math.max(body.layers - 1, 1);
    return pose.spread * Math.min(0.2 * body.width, (0.75 * body.width) / between);
}

// What the turned display covers, around the centre of its lowest plane.
function extent(body: Body, pose: Pose): Rectangle {
    const depth = gap(body, pose) * Math.max(body.layers - 1, 0);
    const halfWidth = (body.width / 2) * Math.cos(pose.yaw);
    const halfHeight =
        (body.height / 2) * Math.cos(pose.pitch) + (body.width / 2) * Math.abs(Math.sin(pose.yaw) * Math.sin(pose.pitch));
    const right = depth * Math.sin(pose.yaw);
    const down = -depth * Math.cos(pose.yaw) * Math.sin(pose.pitch);
    const x = -halfWidth + Math.min(0, right);
    const y = -halfHeight + Math.min(0, down);
    return { x, y, width: 2 * halfWidth + Math.abs(right), height: 2 * halfHeight + Math.abs(down) };
}

export interface Layout {
    readonly scale: number; // of all displays
    readonly columns: number;
    readonly cells: readonly (Rectangle & { readonly centre: Point })[]; // of the displays, in order; centre: of the lowest plane
}

const space = 18;
const heading = 22; // for the display's name
const naming = 96; // beside displays that are pulled apart, for the names of their layers

function arranged(extents: readonly Rectangle[], area: Size, aside: number, columns: number): Layout {
    const rows: Rectangle[][] = [];
    for (let i = 0; i < extents.length; i += columns) rows.push(extents.slice(i, i + columns));
    const heights = rows.map((row) => Math.max(...row.map((each) => each.height)));
    const fitWidth = Math.min(
        ...rows.map(
            (row) =>
                (area.width - space * (row.length + 1) - aside * row.length) / row.reduce((total, each) => total + each.width, 0),
        ),
    );
    const fitHeight = (area.height - (space + heading) * rows.length - space) / heights.reduce((total, each) => total + each, 0);
    const scale = Math.max(Math.min(fitWidth, fitHeight, 1.5), 0.01);
    const used = heights.reduce((total, each) => total + each * scale, (space + heading) * rows.length);
    let top = Math.max((area.height - used) / 2, 0) + heading;
    const cells: Layout['cells'][number][] = [];
    rows.forEach((row, r) => {
        const width = row.reduce((total, each) => total + each.width * scale + aside, space * (row.length - 1));
        let left = (area.width - width) / 2;
        const height = (heights[r] ?? 0) * scale;
        for (const each of row) {
            const x = left + aside;
            const y = top + (height - each.height * scale) / 2;
            cells.push({
                x,
                y,
                width: each.width * scale,
                height: each.height * scale,
                centre: { x: x - each.x * scale, y: y - each.y * scale },
            });
            left = x + each.width * scale + space;
        }
        top += height + space + heading;
    });
    return { scale, columns, cells };
}

// As large as the area allows. `columns`: keeps that number of columns, so that nothing jumps while the displays are turned.
export function layOut(bodies: readonly Body[], area: Size, pose: Pose, columns?: number): Layout {
    const extents = bodies.map((body) => extent(body, pose));
    const aside = naming * pose.spread;
    if (bodies.length === 0) return { scale: 1, columns: 1, cells: [] };
    if (columns !== undefined) return arranged(extents, area, aside, Math.min(columns, bodies.length));
    const tries = bodies.map((_, i) => arranged(extents, area, aside, i + 1));
    return tries.reduce((best, each) => (each.scale > best.scale ? each : best));
}

// The map of the plane at `level` (0: the lowest) of the display whose lowest plane has this centre on the screen.
export function planeAt(body: Body, pose: Pose, layout: Layout, centre: Point, level: number): Plane {
    const depth = level * gap(body, pose);
    const [sinYaw, cosYaw, sinPitch, cosPitch] = [
        Math.sin(pose.yaw),
        Math.cos(pose.yaw),
        Math.sin(pose.pitch),
        Math.cos(pose.pitch),
    ];
    const a = cosYaw * layout.scale;
    const b = sinYaw * sinPitch * layout.scale;
    const d = cosPitch * layout.scale;
    const x = centre.x + depth * sinYaw * layout.scale;
    const y = centre.y - depth * cosYaw * sinPitch * layout.scale;
    return { a, b, d, e: x - (a * body.width) / 2, f: y - (b * body.width + d * body.height) / 2 };
}
