import { expect, test } from 'vitest';

import { memberChanges } from '../../src/model/diff';
import type { Document } from '../../src/model/documents';
import { ancestors, outline } from '../../src/model/outline';
import { configurationId, find, type Scene, SceneMaker, watches } from '../../src/model/scene';
import { gateway, taken } from '../../src/model/state';
import { stateOf } from './world';

const layers = [
    { id: 10, name: 'Map', zpos: 10 },
    { id: 13, name: 'Camera', zpos: 50 },
    { id: 12, name: 'Popups', zpos: 90 },
    { id: 14 },
];

function region(regionID: number | undefined, layer: string, x = 0): Document {
    return {
        ...(regionID !== undefined && { regionID }),
        hmiName: 'HMI',
        layer,
        bounds: { pointMin: { x, y: 0 }, width: 10, height: 10 },
    };
}

function popup(name: string, members: Document = {}): Document {
    return { id: `id-${name}`, name, display: 'D', popupLayerCompositing: 'Popups', slot: 'center', ...members };
}

const usual: Record<string, Document[]> = {
    [watches.displays]: [
        { id: 'd', name: 'D', resolution: { width: 1920, height: 720 } },
        { id: 'e', name: 'Else' },
    ],
    [watches.displayables]: [{ id: 'x', name: 'Map_Main', displayableID: 1001, size: { width: 640 } }],
    [watches.layers]: [{ id: configurationId('D'), name: '', layers }],
    [watches.popups]: [
        popup('Low', { priorityInlayer: 1 }),
        popup('High', { priorityInlayer: 5, visible: true, active: true }),
        popup('Loose', { popupLayerCompositing: 'Gone' }),
    ],
    [watches.input('D')]: [
        {
            id: 'D',
            regionInfoSorted: [region(7, 'Map'), region(undefined, '14', 20), region(9, 'Gone'), region(7, 'Map')],
            hapticInfoSorted: [region(undefined, 'Map')],
            inactiveLayers: [13],
        },
    ],
};

function lines(scene: Scene, opened = new Map<string, boolean>(), filter = ''): string[] {
    return outline(scene, opened, filter).map(
        (row) => `${'  '.repeat(row.depth - 1)}${row.label} | ${row.detail} | ${row.address}`,
    );
}

test('everything is in its place, from the top down', () => {
    expect(lines(new SceneMaker().make(stateOf(usual)))).toEqual([
        'D | 1920×720 | /displays/D',
        '  Popups | z 90 | /layerconfigurations/D/12',
        '    High | shown · center · 5 | /popups/D/High',
        '    Low | not requested · center · 1 | /popups/D/Low',
        '  Camera | z 50 · off | /layerconfigurations/D/13',
        '  Map | z 10 | /layerconfigurations/D/10',
        '    #7 10×10 at 0,0 | HMI | /input/D/r7',
        '    #7 10×10 at 0,0 | HMI | /input/D/r7.1',
        '    10×10 at 0,0 | haptic · HMI | /input/D/j0',
        '  #14 | no z | /layerconfigurations/D/14',
        '    10×10 at 20,0 | HMI | /input/D/i1',
        '  Loose | not requested · center | /popups/D/Loose',
        '  #9 10×10 at 0,0 | HMI | /input/D/r9',
        'Else |  | /displays/Else',
        'Displayables | 1 | /displayables',
        '  Map_Main | 640×? · type 1 · #1001 | /displayables/1001'.replace('type 1 · ', ''),
    ]);
});

test('the tree can be closed and filtered, and each row be found by its address', () => {
    const scene = new SceneMaker().make(stateOf(usual));
    expect(lines(scene, new Map([['/displays/D', false]])).slice(0, 2)).toEqual([
        'D | 1920×720 | /displays/D',
        'Else |  | /displays/Else',
    ]);
    expect(outline(scene, new Map([['/displays/D', false]]), 'hig').map((row) => row.address)).toEqual([
        '/displays/D',
        '/layerconfigurations/D/12',
        '/popups/D/High',
    ]);
    for (const row of outline(scene, new Map(), '')) if (row.item) expect(find(scene, row.address)).toBe(row.item);
    expect(find(scene, '/popups/D/Nobody')).toBeUndefined();
    const high = find(scene, '/popups/D/High');
    expect(high && ancestors(scene, high)).toEqual(['/displays/D', '/layerconfigurations/D/12']);
});

test('what a change does not concern is not made anew', () => {
    const maker = new SceneMaker();
    const state = stateOf(usual);
    const before = maker.make(state);
    const element = popup('Low', { requested: true });
    const after = maker.make(
        taken(state, [{ watch: watches.popups, event: 'changed', data: { element }, time: 0, size: 0 }]).state,
    );
    expect(after.displays[0]).not.toBe(before.displays[0]);
    expect(after.displays[0]?.layers.at(-2)?.regions).toBe(before.displays[0]?.layers.at(-2)?.regions);
    expect(after.displays[1]).toBe(before.displays[1]);
    const more = taken(state, [
        { watch: watches.popups, event: 'changed', data: { element: popup('New') }, time: 0, size: 0 },
    ]).state;
    expect(find(maker.make(more), '/popups/D/New')).toBeDefined();
});

test('what is lost is told by its reason, and only that is stale', () => {
    const lost = (watch: string, reason: string, time: number) => ({
        watch,
        event: 'lost',
        data: { service: '/hmx', reason },
        time,
        size: 0,
    });
    const some = new SceneMaker().make(
        taken(stateOf(usual), [
            lost(watches.popups, 'retrieve /popups at /hmx: a', 5),
            lost(watches.input('D'), 'b', 7),
            lost(watches.displays, 'retrieve /displays at /hmx: a', 3),
        ]).state,
    );
    expect(some.losses.map(({ what, reason, since }) => [what.join(), reason, since])).toEqual([
        ['displays,popups', 'a', 3],
        ['touch regions of D', 'b', 7],
    ]);
    expect([...some.stale].sort()).toEqual(['display', 'popup', 'region']);
    expect(new SceneMaker().make(taken(stateOf(usual), [lost(gateway, 'c', 1)]).state).stale.size).toBe(5);
});

test.each<[string, Document, Document, string[]]>([
    ['members that came and went', { a: 1, b: 2 }, { b: 2, c: 3 }, ['a', 'c']],
    ['inside of objects', { size: { width: 1, height: 2 } }, { size: { width: 1, height: 3 } }, ['size.height']],
    [
        'in lists with numbers, by number',
        {
            layers: [
                { id: 1, z: 1 },
                { id: 2, z: 2 },
            ],
        },
        {
            layers: [
                { id: 0, z: 0 },
                { id: 1, z: 5 },
                { id: 2, z: 2 },
            ],
        },
        ['layers[1].z', 'layers[0]'],
    ],
    ['the order of a list', { layers: [{ id: 1 }, { id: 2 }] }, { layers: [{ id: 2 }, { id: 1 }] }, ['layers order']],
    ['in other lists, by place', { list: [1, 2] }, { list: [1, 3, 4] }, ['list[1]', 'list[2]']],
    ['types', { a: [] }, { a: {} }, ['a']],
])('differences are named: %s', (_, before, after, paths) => {
    expect(memberChanges(before, after).map(({ path }) => path)).toEqual(paths);
});
