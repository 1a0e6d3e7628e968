import { expect, test } from 'vitest';

import { fromHash, toHash } from '../../src/model/address';
import { locate, makeFigure, pick } from '../../src/model/figure';
import { apartPose, flatPose, project, turned, unproject } from '../../src/model/geometry';
import { configurationId, SceneMaker, watches } from '../../src/model/scene';
import { stateOf } from './world';

const area = { width: 800, height: 600 };

function makeScene(displays: number, popups: number) {
    const names = Array.from({ length: displays }, (_, i) => `D${i}`);
    const world = {
        [watches.displays]: names.map((name, i) => ({ id: name, name, resolution: { width: 1000 * (i + 1), height: 500 } })),
        [watches.layers]: names.map((name) => ({
            id: configurationId(name),
            layers: [
                { id: 1, name: 'Low', zpos: 1 },
                { id: 2, name: 'High', zpos: 2 },
            ],
        })),
        [watches.popups]: Array.from({ length: popups }, (_, i) => ({
            id: `p${i}`,
            name: `P${i}`,
            display: 'D0',
            popupLayerCompositing: 'High',
            requested: i === 7,
        })),
        [watches.input('D0')]: [
            {
                id: 'D0',
                regionInfoSorted: [
                    { regionID: 1, layer: 'High', bounds: { pointMin: { x: 400, y: 300 }, width: 100, height: 100 } },
                    { regionID: 2, layer: 'High', bounds: { pointMin: { x: 400, y: 300 }, width: 200, height: 200 } },
                    { regionID: 3, layer: 'Low', bounds: { pointMin: { x: 400, y: 300 }, width: 300, height: 200 } },
                ],
            },
        ],
    };
    return new SceneMaker().make(stateOf(world));
}

test.each([
    ['flat', flatPose],
    ['pulled apart', apartPose],
    ['turned as far as it goes', turned(apartPose, 9, -9)],
])('displays are to one scale, beside each other and within the area: %s', (_, pose) => {
    const { layout, displays } = makeFigure(makeScene(3, 0), undefined, area, pose);
    for (const { display, cell, layers } of displays) {
        const corners = layers.flatMap(({ plane }) =>
            [0, display.width].flatMap((x) => [0, display.height].map((y) => project(plane, { x, y }))),
        );
        for (const { x, y } of corners) {
            expect(x).toBeGreaterThanOrEqual(Math.max(cell.x, 0) - 0.01);
            expect(x).toBeLessThanOrEqual(Math.min(cell.x + cell.width, area.width) + 0.01);
            expect(y).toBeGreaterThanOrEqual(Math.max(cell.y, 0) - 0.01);
            expect(y).toBeLessThanOrEqual(Math.min(cell.y + cell.height, area.height) + 0.01);
        }
        const plane = layers[0]?.plane;
        expect(Math.hypot(plane?.a ?? 0, 0) / layout.scale).toBeCloseTo(Math.cos(pose.yaw));
    }
    for (const one of displays) {
        for (const other of displays) {
            if (one === other) continue;
            const apart = one.cell.x + one.cell.width <= other.cell.x || other.cell.x + other.cell.width <= one.cell.x;
            const stacked = one.cell.y + one.cell.height <= other.cell.y || other.cell.y + other.cell.height <= one.cell.y;
            expect(apart || stacked).toBe(true);
        }
    }
});

test.each([
    [
        'flat',
        flatPose,
        [
            '/input/D0/r1',
            '/input/D0/r2',
            '/layerconfigurations/D0/2',
            '/input/D0/r3',
            '/layerconfigurations/D0/1',
            '/displays/D0',
        ],
    ],
    ['pulled apart', apartPose, ['/input/D0/r1', '/input/D0/r2', '/layerconfigurations/D0/2']],
])('what is at a point is found, the nearest first: %s', (_, pose, addresses) => {
    const figure = makeFigure(makeScene(2, 0), undefined, area, pose);
    const plane = figure.displays[0]?.layers[1]?.plane;
    if (!plane) throw new Error('no plane');
    const at = project(plane, { x: 450.5, y: 350.5 });
    expect(unproject(plane, at).x).toBeCloseTo(450.5);
    expect(
        pick(figure, at)
            .map((item) => item.address)
            .slice(0, addresses.length),
    ).toEqual(addresses);
    expect(locate(figure, at)?.point).toEqual({ x: 450, y: 350 });
    expect(pick(figure, { x: -5, y: 2 })).toEqual([]);
});

test('cards do not cover each other; those that have no room are counted', () => {
    for (const [popups, only] of [
        [8, 'D0'],
        [500, undefined],
    ] as const) {
        const { displays } = makeFigure(makeScene(2, popups), only, area, flatPose);
        const cards = displays[0]?.layers.flatMap((layer) => layer.cards) ?? [];
        expect(cards.length + (displays[0]?.omitted ?? 0)).toBe(popups);
        expect(cards.some(({ popup }) => popup.label === 'P7')).toBe(true);
        expect(new Set(cards.map(({ bounds }) => `${bounds.x},${bounds.y}`)).size).toBe(cards.length);
    }
});

test.each([
    [{}, '#/'],
    [{ selected: '/popups/D/Low%20Fuel' }, '#/popups/D/Low%20Fuel'],
    [
        { selected: '/input/D/r3', at: 1e12, apart: true, display: 'A&B' },
        '#/input/D/r3?at=2001-09-09T01:46:40.000Z&view=apart&display=A%26B',
    ],
])('a link has all that is needed to come back: %j', (link, hash) => {
    expect(toHash(link)).toBe(hash);
    expect(fromHash(hash)).toEqual({ selected: undefined, at: undefined, apart: false, display: undefined, ...link });
});
