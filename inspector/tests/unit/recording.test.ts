// Recordings: what is read from a file, what of a bad one, and what the page writes itself.

import { readFileSync } from 'node:fs';

import { expect, test } from 'vitest';

import { Lines, readRecording, type Recording } from '../../src/io/recordings';
import { clock, describe as described } from '../../src/model/describe';
import { explain } from '../../src/model/explain';
import { History, recordingLimits } from '../../src/model/history';
import { longestLine } from '../../src/model/recording_reader';
import { recordingOf } from '../../src/model/recording_writer';
import { configurationId, find, SceneMaker, watches } from '../../src/model/scene';
import { type Arrival, gateway, type State, watched } from '../../src/model/state';

const sample = readFileSync(new URL('../../../share/recordings/phone_call.jsonl', import.meta.url), 'utf8');

function open(text: string, limits = recordingLimits): Promise<Recording> {
    return readRecording('x.jsonl', false, new Blob([text]).stream(), { limits });
}

function explained(state: State, address: string): string[] {
    const scene = new SceneMaker().make(state);
    const item = find(scene, address);
    return item ? explain(scene, item).map(({ level, text }) => `${level} ${text}`) : ['not there'];
}

test('the sample is shown as hmxctl explains it', async () => {
    const { head, history, problems, lines } = await open(sample);
    expect([lines, problems, head.zone, head.upstream]).toEqual([28, [], 'Etc/UTC', true]);
    const times = [...Array(history.last + 1).keys()].map((i) => history.entry(i)?.time ?? 0);
    expect([times[0], times.at(-1)].map((time) => clock(time ?? 0, head.fromUtc))).toEqual(['13:39:27.929', '13:39:29.445']);
    const fuel = '/popups/Driver_Display/Low_Fuel';
    const call = history.before((head.begun ?? 0) + 1012);
    expect(explained(history.at(call - 1), fuel)[0]).toBe('OK It is visible.');
    expect(explained(history.at(call), fuel)[0]).toBe('PROBLEM Suppressed: Incoming_Call (priority 80) has the slot "center".');
    const entry = history.entry(call);
    expect(entry && described(entry, []).words).toMatch(
        /^Driver_Display\/Incoming_Call active: no → yes, .*; Driver_Display\/Low_Fuel active: yes → no, suppressed: no → yes/,
    );
    // What only the managers say: layers that are switched off, and where displayables are.
    expect(explained(history.head, '/layerconfigurations/Driver_Display/13')[0]).toMatch(/^PROBLEM It is switched off/);
    expect(explained(history.head, '/displayables/1003').some((line) => line.includes('layer Home of Driver_Display'))).toBe(
        true,
    );
    const regions = watched(history.head, watches.input('Driver_Display')).elements.get('Driver_Display');
    expect(regions).toMatchObject({
        inactiveLayers: [13],
        regionInfoSorted: [{ regionID: 3 }, { regionID: 1 }, { regionID: 2 }],
    });
});

const head = '{"recording":1,"wall":"2026-11-22T12:30:00.5+01:00","zone":"Europe/Berlin","upstream":false}';
const source = '"service":"/hmx","path":"/popups","parameters":{"display":"D"}';
const state = (n: number, names: string[], t = n * 1e9, rest = ''): string =>
    `{"t":${t},"n":${n},${source},"event":"state","status":200${rest},"document":{"total":${names.length},"data":[${names.map((name) => `{"id":"${name}","name":"${name}","display":"D"}`).join()}]}}`;
const change = (n: number, steps: string, t = n * 1e9, rest = ''): string =>
    `{"t":${t},"n":${n},${source},"event":"change","status":200,"array":"data","steps":[${steps}]${rest}}`;
const insert = (at: number, name: string): string => `{"step":"insert","at":${at},"element":{"id":"${name}","display":"D"}}`;
const other = (n: number, event: string, t = n * 1e9): string =>
    `{"t":${t},"n":${n},${source},"event":"${event}","status":503,"reason":"gone"}`;
const erase = '{"step":"erase","at":0}';

// Lines, the popups after each step with ! for a loss, and the lines that are complained about.
test.each<[string, string[], string, string]>([
    ['as written', [head, state(1, ['a']), change(2, insert(1, 'b')), change(3, erase)], 'a ab b', ''],
    ['the same answer again is no step', [head, state(1, ['a']), change(2, ''), state(3, ['a'])], 'a', ''],
    [
        'an element in place of another',
        [head, state(1, ['a', 'b']), change(2, '{"step":"set","at":0,"element":{"id":"c"}}')],
        'ab bc',
        '',
    ],
    ['a loss and the return', [head, state(1, ['a']), other(2, 'lost'), state(3, ['b'], 3e9, ',"back":true')], 'a a! a b', ''],
    ['refused, then answered', [head, state(1, ['a']), other(2, 'failed'), state(3, ['a'])], 'a a! a', ''],
    ['ended is no loss', [head, state(1, ['a']), other(2, 'ended'), change(3, insert(0, 'b'))], 'a ab', ''],
    ['missing', [head, state(1, ['a']), other(2, 'missing'), state(3, ['b'])], 'a  b', ''],
    [
        'two lines in the wrong order',
        [head, state(1, ['a']), change(3, insert(0, 'c')), change(2, insert(0, 'b'))],
        'a ab abc',
        '3',
    ],
    ['a line twice', [head, state(1, ['a']), change(2, insert(0, 'b')), change(2, insert(0, 'b'))], 'a ab', '4'],
    ['a line is missing', [head, state(1, ['a']), change(3, insert(0, 'c')), state(4, ['d'])], 'a d', '3 3'],
    [
        'foreign text, an empty line, an unknown event',
        [head, 'hello', '', state(1, ['a']), '{"t":1}', other(2, 'odd')],
        'a',
        '2 5 6',
    ],
    [
        'a change that does not fit',
        [head, state(1, ['a']), change(2, '{"step":"erase","at":7}'), change(3, erase), state(4, ['b'])],
        'a b',
        '3 4',
    ],
    ['a change of nothing', [head, change(1, erase), state(2, ['a'])], 'a', '2'],
    ['a last line that was cut', [head, state(1, ['a']), change(2, insert(0, 'b')).slice(0, -9)], 'a', '3'],
    ['no head', [state(1, ['a']), state(2, ['b'])], 'a b', '1'],
    ['the head later', ['garbage', head, state(1, ['a'])], 'a', '1'],
    ['another recording after it', [head, state(1, ['a']), head.replace('1', '1 '), state(2, ['b'])], 'a', '3'],
    ['without numbers', [head, state(1, ['a']).replace('"n":1,', ''), state(0, ['b']).replace('"n":0,', '')], 'a', '3'],
    [
        'too deep',
        [head, `{"t":1,"n":1,${source},"event":"state","document":${'['.repeat(90)}${']'.repeat(90)}}`, state(2, ['a'])],
        'a',
        '2',
    ],
    [
        'the end, and what follows it',
        [head, state(1, ['a']), '{"t":5000000000,"event":"stopped"}', change(2, insert(0, 'b')), '{"event":"stopped"}'],
        'a ab',
        '5',
    ],
    ['an unknown member', [head, state(1, ['a'], 1e9, ',"new":{"x":1}')], 'a', ''],
])('%s', async (_, lines, states, complaints) => {
    const { history, problems } = await open(lines.join('\n'));
    const seen = [...Array(history.last + 1).keys()].map((i) => {
        const { elements, loss } = watched(history.at(i), watches.popups);
        return [...elements.keys()].sort().join('') + (loss ? '!' : '');
    });
    expect(seen.join(' ')).toBe(states);
    expect(problems.map(({ line }) => line).join(' ')).toBe(complaints);
});

test('a recording ends when the recorder stopped; if it was killed, with the last entry', async () => {
    const begun = Date.parse('2026-11-22T11:30:00.5Z');
    const stop = '{"t":5000000000,"event":"stopped"}';
    for (const [rest, end] of [
        [[], 1000],
        [[stop], 5000],
        [[stop, change(2, insert(0, 'b'), 7e9)], 7000],
    ] as const)
        expect((await open([head, state(1, ['a']), ...rest].join('\n'))).end - begun).toBe(end);
});

test.each([
    ['', /it is empty/],
    ['hello\nworld', /its first line is no complete JSON object/],
    ['{"recording":2}', /version 2/],
])('%j is no recording, and it is said why', async (text, words) => {
    await expect(open(text)).rejects.toThrow(words);
});

test('a line that is too long is left out, and what follows is not', () => {
    const found: (number | undefined)[] = [];
    const lines = new Lines((line) => void found.push(line?.length));
    const piece = 'x'.repeat(1 << 20);
    const texts = ['ab\nc', 'd\n', ...Array<string>((longestLine >> 20) + 1).fill(piece), '\nef'];
    texts.forEach((text) => void [...lines.add(text)]);
    lines.end();
    expect(found).toEqual([2, 2, undefined, 2]);
});

test('what is larger than the page can hold keeps its end, and each state of it is true', async () => {
    const count = 5000;
    const steps = Array.from({ length: count }, (_, i) => `{"step":"set","at":0,"element":{"id":"a","display":"D","i":${i}}}`);
    const text = [head, state(1, ['a']), ...steps.map((step, i) => change(i + 2, step))].join('\n');
    const { history } = await open(text, { ...recordingLimits, count: 1000 });
    const at = (position: number): unknown => watched(history.at(position), watches.popups).elements.get('a')?.['i'];
    expect([history.isCut, history.last - history.first]).toEqual([true, 1000]);
    for (const position of [history.last, history.first, history.first + 300, history.last - 2, history.first + 1])
        expect(at(position)).toBe(position - 1);
});

const display = (name: string): Arrival['data'] => ({ id: name, name, resolution: { width: 9, height: 9 } });
const popup = (id: string, members: object = {}): Arrival['data'] => ({ id, name: id, display: 'D', ...members });
const surface = (inactiveLayers: number[]): Arrival['data'] => ({
    element: { id: 'D', name: 'D', regionInfoSorted: [{ regionID: 1, layer: 'L' }], hapticInfoSorted: [], inactiveLayers },
});
const configuration = { id: configurationId('D'), name: '', layers: [{ id: 7, name: 'L', zpos: 1 }] };

// A life as the gateway tells it. Each step is written, and leads to the same state when the page reads it.
test('what the page writes is what it has seen', async () => {
    const told: [watch: string, event: string, data: Arrival['data']][] = [
        [watches.displays, 'snapshot', { elements: [display('D')] }],
        [watches.layers, 'snapshot', { elements: [configuration] }],
        [watches.popups, 'snapshot', { elements: [popup('a'), popup('b')] }],
        [watches.placements, 'snapshot', { elements: [{ id: '5', is_visible: true }] }],
        [watches.input('D'), 'snapshot', { elements: [surface([])['element']] }],
        [watches.input('D'), 'changed', surface([7])],
        [watches.popups, 'changed', { element: popup('b', { visible: true }) }],
        [watches.popups, 'removed', { id: 'a' }],
        [watches.popups, 'lost', { service: '/hmx', reason: 'gone' }],
        [watches.popups, 'back', {}],
        [watches.popups, 'snapshot', { elements: [popup('c')] }],
        [gateway, 'lost', { service: 'the gateway', reason: 'no connection' }],
        [gateway, 'back', {}],
        [watches.popups, 'snapshot', { elements: [popup('c'), popup('d')] }],
        [watches.displays, 'changed', { element: display('E') }],
        [watches.popups, 'changed', { element: { ...popup('e'), display: 'E' } }],
        [watches.popups, 'removed', { id: 'e' }],
        [watches.displays, 'removed', { id: 'E' }],
    ];
    const begun = Date.parse('2026-11-22T11:30:00.250Z');
    const history = new History();
    told.forEach(([watch, event, data], i) => history.take([{ watch, event, data, time: begun + i * 1000, size: 0 }]));
    const written = { programs: { hmxgateway: '1' }, zone: 'X', fromUtc: 5_400_000, steady: () => 12 };
    const lines = recordingOf(history, written, begun + 60_000);
    expect(lines[0]).toContain('"wall":"2026-11-22T13:00:00.250000000+01:30","zone":"X","origin":12000000,');
    const again = await open(lines.join('\n') + '\n');
    expect([again.problems, again.head.begun, again.end]).toEqual([[], begun, begun + 60_000]);
    const seen = (state: State): unknown =>
        [...state]
            .filter(([watch]) => watch !== gateway)
            .map(([watch, { elements }]) => [watch, Object.fromEntries(elements)])
            .sort();
    // From the return of the popups on, what was read anew counts, and not the last that was known before.
    for (let i = history.first + 1; i <= history.last; ++i) {
        const entry = history.entry(i);
        if (!entry || entry.kind === 'back') continue;
        const position = again.history.before(entry.time);
        expect([i, seen(again.history.at(position))]).toEqual([i, seen(history.at(i))]);
        const isLost =
            watched(history.at(i), watches.popups).loss !== undefined || watched(history.at(i), gateway).loss !== undefined;
        expect([i, watched(again.history.at(position), watches.popups).loss !== undefined]).toEqual([i, isLost]);
    }
});
