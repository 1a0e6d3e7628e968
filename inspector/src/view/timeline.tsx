// The last minutes: a line of time to move on, and the list of changes.

import { effect } from '@preact/signals';
import { useEffect, useRef } from 'preact/hooks';

import { age, clock, describe } from '../model/describe';
import { usualLimits } from '../model/history';
import * as store from '../store';
import { readColours } from './colours';
import { Rows } from './rows';

const pace = 200; // milliseconds between two drawings of the line

// How much changed when, and when something was lost.
function drawLine(canvas: HTMLCanvasElement): void {
    const context = canvas.getContext('2d');
    if (!context) return;
    const colours = readColours();
    const { clientWidth: width, clientHeight: height } = canvas;
    canvas.width = width * devicePixelRatio;
    canvas.height = height * devicePixelRatio;
    context.scale(devicePixelRatio, devicePixelRatio);
    const now = Date.now();
    const place = (time: number): number => width * (1 - (now - time) / usualLimits.age);
    const columns = new Uint16Array(Math.max(width, 1));
    const { first, last } = store.span.peek();
    const losses = new Map<string, number>();
    context.fillStyle = colours.lost;
    const bar = (from: number, to: number): void => {
        for (let x = Math.max(Math.floor(place(from)), 0); x <= place(to); x += 3) context.fillRect(x, height - 5, 2, 5);
    };
    for (let i = first + 1; i <= last; ++i) {
        const entry = store.history.entry(i);
        if (!entry) continue;
        const x = Math.floor(place(entry.time));
        if (x >= 0 && x < width && entry.changes.length > 0) columns[x] = (columns[x] ?? 0) + 1;
        const since = entry.before.loss && (losses.get(entry.watch) ?? entry.before.loss.since);
        if (since !== undefined && !entry.after.loss) bar(since, entry.time);
        if (entry.after.loss) losses.set(entry.watch, entry.time);
        else losses.delete(entry.watch);
    }
    for (const since of losses.values()) bar(since, now);
    context.fillStyle = colours.accent;
    columns.forEach((count, x) => {
        const high = Math.min(3 + 4 * Math.log2(count), height - 6);
        if (count > 0) context.fillRect(x, height - 6 - high, 1, high);
    });
    context.fillStyle = colours.dim;
    for (let minute = 1; minute < usualLimits.age / 60_000; ++minute) context.fillRect(place(now - minute * 60_000), 0, 1, 3);
}

function Line() {
    const canvas = useRef<HTMLCanvasElement>(null);
    useEffect(() => {
        let timer = 0;
        const stop = effect(() => {
            for (const each of [store.span, store.dark]) void each.value;
            if (timer !== 0) return;
            timer = window.setTimeout(() => {
                timer = 0;
                if (canvas.current) drawLine(canvas.current);
            }, pace);
        });
        return () => {
            stop();
            clearTimeout(timer);
        };
    }, []);
    return <canvas ref={canvas} class="line" aria-hidden="true" />;
}

function shownTime(): number | undefined {
    const at = store.position.value;
    return at === undefined
        ? undefined
        : (store.history.entry(store.history.clamped(at))?.time ?? store.now.value - usualLimits.age);
}

function Slider() {
    const now = store.now.value;
    const time = shownTime();
    const back = time === undefined ? 0 : Math.max(now - time, 0);
    return (
        <input
            class="slider"
            type="range"
            min={0}
            max={usualLimits.age}
            step={250}
            value={usualLimits.age - back}
            aria-label="Time"
            aria-valuetext={time === undefined ? 'now' : `${clock(time)}, ${age(back)} ago`}
            onInput={(event) => {
                const wanted = usualLimits.age - event.currentTarget.valueAsNumber;
                if (wanted < 500) store.goTo(undefined);
                else store.goToTime(Date.now() - wanted);
            }}
        />
    );
}

export function togglePause(): void {
    store.goTo(store.position.peek() === undefined ? store.history.last : undefined);
}

function Controls() {
    const { first, last } = store.span.value;
    const time = shownTime();
    const at = store.position.value;
    const paused = at !== undefined;
    const newer = paused ? last - store.history.clamped(at) : 0;
    return (
        <div class="controls" role="group" aria-label="Time">
            <button class={paused ? 'primary' : ''} title="Space" onClick={togglePause}>
                {paused ? 'Go on' : 'Pause'}
            </button>
            <button title="," aria-label="One change back" disabled={(at ?? last) <= first} onClick={() => store.step(-1)}>
                ◂
            </button>
            <button title="." aria-label="One change forward" disabled={!paused || newer === 0} onClick={() => store.step(1)}>
                ▸
            </button>
            <span class={`moment ${paused ? 'paused' : ''}`}>
                {time === undefined
                    ? 'Now'
                    : `${clock(time)} · ${age(store.now.value - time)} ago · ${newer} newer ${newer === 1 ? 'change' : 'changes'}`}
            </span>
        </div>
    );
}

function ChangeList() {
    const { first, last } = store.span.value;
    const at = store.position.value === undefined ? undefined : store.history.clamped(store.position.value);
    const displays = store.scene.value.displays.map((display) => display.label);
    return (
        <Rows
            count={last - first}
            current={at === undefined ? undefined : last - at}
            attributes={{
                class: 'rows changes',
                role: 'listbox',
                'aria-label': 'Changes, the newest first',
                tabIndex: 0,
                onKeyDown: (event: KeyboardEvent) => {
                    const by = { ArrowDown: -1, ArrowUp: 1 }[event.key];
                    if (by === undefined) return;
                    store.step(by);
                    event.preventDefault();
                },
            }}
            row={(index) => {
                const number = last - index;
                const entry = store.history.entry(number);
                if (!entry) return null;
                const { what, words, address } = describe(entry, displays);
                return (
                    <div
                        key={number}
                        class={`row change ${entry.kind}${number === at ? ' selected' : ''}`}
                        role="option"
                        aria-selected={number === at}
                        title={`${what} ${words}`}
                        onClick={() => {
                            store.goTo(number);
                            if (address !== undefined) store.selected.value = address;
                        }}
                    >
                        <time>{clock(entry.time)}</time> <span class="label">{what}</span> <span class="detail">{words}</span>
                    </div>
                );
            }}
        />
    );
}

export function Timeline() {
    return (
        <section class="timeline panel" aria-label="The last ten minutes">
            <Controls />
            <div class="track">
                <Line />
                <Slider />
            </div>
            <ChangeList />
        </section>
    );
}
