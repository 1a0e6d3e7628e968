// The last minutes, or a recording: a line of time to move on, and the list of changes.

import { effect } from '@preact/signals';
import { useEffect, useRef } from 'preact/hooks';

import { age, clock, describe } from '../model/describe';
import { usualLimits } from '../model/history';
import * as store from '../store';
import { readColours } from './colours';
import { download } from './recordings';
import { Rows } from './rows';

const pace = 200; // milliseconds between two drawings of the line

// The distance between two marks on the line: the shortest of these that leaves them apart.
const seconds = [1, 10, 60, 600, 3600, 6 * 3600, 24 * 3600];

// How much changed when, and when something was lost.
function drawLine(canvas: HTMLCanvasElement): void {
    const context = canvas.getContext('2d');
    if (!context) return;
    const colours = readColours();
    const { clientWidth: width, clientHeight: height } = canvas;
    canvas.width = width * devicePixelRatio;
    canvas.height = height * devicePixelRatio;
    context.scale(devicePixelRatio, devicePixelRatio);
    const to = store.recording.peek() ? store.extent.peek().to : Date.now();
    const from = store.recording.peek() ? store.extent.peek().from : to - usualLimits.age;
    const place = (time: number): number => (width * (time - from)) / (to - from);
    const columns = new Float64Array(Math.max(width, 1));
    const history = store.history.peek();
    const losses = new Map<string, number>();
    context.fillStyle = colours.lost;
    const bar = (since: number, until: number): void => {
        for (let x = Math.max(Math.floor(place(since)), 0); x <= place(until); x += 3) context.fillRect(x, height - 5, 2, 5);
    };
    for (let i = history.first + 1; i <= history.last; ++i) {
        const entry = history.entry(i);
        if (!entry) continue;
        const x = Math.min(Math.floor(place(entry.time)), width - 1);
        if (x >= 0 && entry.changes.length > 0) columns[x] = (columns[x] ?? 0) + 1;
        const since = entry.before.loss && (losses.get(entry.watch) ?? entry.before.loss.since);
        if (since !== undefined && !entry.after.loss) bar(since, entry.time);
        if (!entry.after.loss) losses.delete(entry.watch);
        else if (!losses.has(entry.watch)) losses.set(entry.watch, entry.time);
    }
    for (const since of losses.values()) bar(since, to);
    context.fillStyle = colours.accent;
    columns.forEach((count, x) => {
        const high = Math.min(4 + 4 * Math.log2(count), height - 6);
        if (count > 0) context.fillRect(x, height - 6 - high, 2, high);
    });
    context.fillStyle = colours.dim;
    const marks = seconds.find((each) => place(from + each * 1000) > 40) ?? Infinity;
    for (let time = to - marks * 1000; time > from; time -= marks * 1000) context.fillRect(place(time), 0, 1, 3);
}

function Line() {
    const canvas = useRef<HTMLCanvasElement>(null);
    useEffect(() => {
        let timer = 0;
        const stop = effect(() => {
            for (const each of [store.span, store.extent, store.dark]) void each.value;
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

function Slider() {
    const { from, to } = store.extent.value;
    const recorded = store.recording.value !== undefined;
    const live = store.isLive.value;
    const time = Math.min(store.shownTime.value, to);
    return (
        <input
            class="slider"
            type="range"
            min={0}
            max={to - from}
            step={recorded ? 'any' : 250}
            value={Math.max(time - from, 0)}
            aria-label="Time"
            aria-valuetext={
                live ? 'now' : `${clock(time, store.fromUtc.value)}, ${age(to - time)} ${recorded ? 'before the end' : 'ago'}`
            }
            onInput={(event) => {
                const wanted = event.currentTarget.valueAsNumber;
                if (recorded) store.goToTime(from + wanted);
                else if (usualLimits.age - wanted < 500) store.goTo(undefined);
                else store.goToTime(Date.now() - usualLimits.age + wanted);
            }}
        />
    );
}

function Moment() {
    const { from, to } = store.extent.value;
    const time = store.shownTime.value;
    if (store.isLive.value) return <span class="moment">Now</span>;
    const at = clock(time, store.fromUtc.value);
    if (store.recording.value) {
        const length = (span: number): string => (to - from < 60_000 ? `${(span / 1000).toFixed(1)} s` : age(span));
        const words = `${at} · ${length(time - from)} of ${length(to - from)}`;
        return <span class="moment paused">{words}</span>;
    }
    const newer = store.span.value.last - store.history.value.clamped(store.position.value ?? 0);
    return (
        <span class="moment paused">
            {`${at} · ${age(to - time)} ago · ${newer} newer ${newer === 1 ? 'change' : 'changes'}`}
        </span>
    );
}

function Player() {
    return (
        <>
            <button
                class={store.recording.value ? 'primary' : ''}
                title={store.recording.value ? 'Space' : undefined}
                onClick={store.togglePlaying}
            >
                {store.playing.value ? 'Stop' : 'Play'}
            </button>
            <label>
                <span class="unseen">Speed</span>
                <select value={store.speed.value} onChange={(event) => (store.speed.value = Number(event.currentTarget.value))}>
                    {store.speeds.map((each) => (
                        <option key={each} value={each}>
                            ×{each}
                        </option>
                    ))}
                </select>
            </label>
        </>
    );
}

function Controls() {
    const { first, last } = store.span.value;
    const position = store.position.value ?? last;
    const recorded = store.recording.value !== undefined;
    const live = store.isLive.value;
    return (
        <div class="controls" role="group" aria-label="Time">
            {!recorded && (
                <button class={live ? '' : 'primary'} title="Space" onClick={store.togglePause}>
                    {live ? 'Pause' : 'Go on'}
                </button>
            )}
            {!live && <Player />}
            <button title="," aria-label="One change back" disabled={position <= first} onClick={() => store.step(-1)}>
                ◂
            </button>
            <button title="." aria-label="One change forward" disabled={live || position >= last} onClick={() => store.step(1)}>
                ▸
            </button>
            <Moment />
            <span class="space" />
            {!recorded && (
                <button title="The time line as a recording, for this page and for hmxctl --from" onClick={download}>
                    Download
                </button>
            )}
        </div>
    );
}

function ChangeList() {
    const { first, last } = store.span.value;
    const history = store.history.value;
    const at = store.position.value === undefined ? undefined : history.clamped(store.position.value);
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
                const entry = history.entry(number);
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
                        <time>{clock(entry.time, store.fromUtc.value)}</time> <span class="label">{what}</span>{' '}
                        <span class="detail">{words}</span>
                    </div>
                );
            }}
        />
    );
}

export function Timeline() {
    return (
        <section class="timeline panel" aria-label={store.recording.value ? 'The recording' : 'The last ten minutes'}>
            <Controls />
            <div class="track">
                <Line />
                <Slider />
            </div>
            <ChangeList />
        </section>
    );
}
