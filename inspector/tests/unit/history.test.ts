import { expect, test } from 'vitest';

import { describe as described } from '../../src/model/describe';
import { History } from '../../src/model/history';
import { type Arrival, type State, watched } from '../../src/model/state';

const popups = '/hmx/popups';

function arrival(event: string, data: Arrival['data'], time = 0, watch = popups): Arrival {
    return { watch, event, data, time, size: 100 };
}

function popup(name: string, members: object = {}): Arrival['data'] {
    return { id: name, name, display: 'D', ...members };
}

// "Hint Volume!": the elements of a state, and ! if they are what was last known.
function summary(state: State): string {
    const { elements, loss, read } = watched(state, popups);
    return (
        (read
            ? [...elements.values()]
                  .map((each) => `${String(each['name'])}${each['visible'] === true ? '*' : ''}`)
                  .sort()
                  .join(' ')
            : 'unread') + (loss ? '!' : '')
    );
}

// A life with a loss: each arrival, the state after it, and what the list of changes says.
const life: [arrival: Arrival, state: string, words: string][] = [
    [arrival('snapshot', { elements: [popup('Hint'), popup('Volume')] }, 1000), 'Hint Volume', 'popups read, 2 in all'],
    [
        arrival('changed', { element: popup('Volume', { visible: true }) }, 2000),
        'Hint Volume*',
        'popup D/Volume visible: – → yes',
    ],
    [arrival('removed', { id: 'Hint' }, 3000), 'Volume*', 'popup D/Hint removed'],
    [
        arrival('lost', { service: '/hmx', reason: 'gone', since: '1970-01-01T00:00:03.500Z' }, 4000),
        'Volume*!',
        'popups lost: gone',
    ],
    [arrival('back', {}, 5000), 'Volume*', 'popups back'],
    [
        arrival('snapshot', { elements: [popup('Volume'), popup('Call')] }, 6000),
        'Call Volume',
        'popups read again, 2 have changed',
    ],
    [arrival('changed', { element: popup('Late') }, 7000), 'Call Late Volume', 'popup D/Late added'],
];

test('each state of a life can be gone back to, in any order', () => {
    const history = new History();
    for (const [each] of life) history.take([each]);
    expect(history.last).toBe(life.length - 1);
    expect(history.at(history.first).size === 0 || summary(history.at(history.first)) === 'unread').toBe(true);
    for (const position of [0, 6, 3, 1, 5, 2, 4, 0]) {
        expect(summary(history.at(position))).toBe(life[position]?.[1]);
        const entry = history.entry(position);
        const { what, words } = entry ? described(entry, ['D']) : { what: '', words: '' };
        expect(`${what} ${words}`).toBe(life[position]?.[2]);
    }
    expect(watched(history.at(3), popups).loss?.since).toBe(3500);
    expect([2500, 999, 99_999].map((time) => history.before(time))).toEqual([1, -1, 6]);
});

test('one batch is as good as many, and leaves states that were given out alone', () => {
    const history = new History();
    history.take(life.slice(0, 1).map(([each]) => each));
    const early = history.head;
    history.take(life.slice(1).map(([each]) => each));
    expect([summary(early), summary(history.head)]).toEqual(['Hint Volume', 'Call Late Volume']);
});

test.each([
    ['the same element again', arrival('changed', { element: popup('Volume') })],
    ['the same snapshot again', arrival('snapshot', { elements: [popup('Volume')] })],
    ['an element without id', arrival('changed', { element: { name: 'Volume' } })],
    ['one removed that is not there', arrival('removed', { id: 'Hint' })],
    ['back without a loss', arrival('back', {})],
    ['an unknown event', arrival('moved', {})],
])('%s is no change', (_, nothing) => {
    const history = new History();
    history.take([arrival('snapshot', { elements: [popup('Volume')] })]);
    const before = history.head;
    expect(history.take([nothing])).toBe(false);
    expect(history.head).toBe(before);
});

test.each([
    ['age', { age: 450, count: 1e6, cost: 1e9 }],
    ['number', { age: 1e9, count: 5, cost: 1e9 }],
    ['memory', { age: 1e9, count: 1e6, cost: 5 * 500 }],
])('what is kept is bounded by %s; what is left stays true', (_, limits) => {
    const history = new History(limits);
    for (let i = 0; i < 20; ++i) history.take([arrival('snapshot', { elements: [popup(`P${i}`)] }, i * 100)]);
    history.at(2);
    history.trim(1900);
    expect([history.first, history.last]).toEqual([14, 19]);
    expect([0, 14, 16, 19, 99].map((position) => summary(history.at(position)))).toEqual(['P14', 'P14', 'P16', 'P19', 'P19']);
});
