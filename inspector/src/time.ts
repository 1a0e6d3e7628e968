// Time: the states that have arrived, those of a recording that is open, and the one that is shown.
//
// There is one time line: of the page itself, which goes on as long as it is open, or of a recording. The position on it is an entry,
// or nothing, which means the newest state, whatever arrives. Between two entries nothing changes, but a time in between can be
// gone to; it is remembered beside the position.

import { batch, computed, signal } from '@preact/signals';

import type { Recording } from './io/recordings';
import { localFromUtc } from './model/describe';
import { History, usualLimits } from './model/history';
import type { Arrival } from './model/state';

const arrived = signal(0); // goes up when anything has
const moment = signal<number | undefined>(undefined); // the time that was gone to

export const live = new History();
export const recording = signal<Recording | undefined>(undefined); // that is shown instead
export const history = computed(() => recording.value?.history ?? live);
export const position = signal<number | undefined>(undefined);
export const now = signal(Date.now()); // goes on by the second
export const isLive = computed(() => recording.value === undefined && position.value === undefined);

export function take(arrivals: readonly Arrival[]): void {
    if (live.take(arrivals)) arrived.value++;
}

export function tick(): void {
    const time = Date.now();
    live.trim(time);
    now.value = time;
}

export const newest = computed(() => {
    void arrived.value;
    return live.head;
});
export const shownState = computed(() => {
    if (position.value !== undefined) return history.value.at(position.value);
    return recording.value ? history.value.head : newest.value;
});
export const span = computed(() => {
    if (!recording.value) {
        void arrived.value;
        void now.value;
    }
    const { first, last } = history.value;
    return { first, last };
});

// The times that the time line reaches from and to.
export const extent = computed(() => {
    if (!recording.value) return { from: now.value - usualLimits.age, to: now.value };
    const from = history.value.entry(span.value.first + 1)?.time ?? recording.value.head.begun ?? 0;
    return { from, to: Math.max(recording.value.end, from + 1) };
});
export const shownTime = computed(() => {
    const { from, to } = extent.value;
    if (position.value === undefined) return to;
    const entry = history.value.entry(history.value.clamped(position.value));
    return Math.max(moment.value ?? 0, entry?.time ?? from);
});
// By how many milliseconds the clocks differ from UTC that times are told by.
export const fromUtc = computed(() => recording.value?.head.fromUtc ?? localFromUtc(now.value));

export function goTo(wanted: number | undefined): void {
    batch(() => {
        playing.value = false;
        moment.value = undefined;
        position.value = wanted === undefined ? undefined : history.value.clamped(wanted);
    });
}

export function step(by: number): void {
    goTo((position.value ?? history.value.last) + by);
}

export function goToTime(time: number): void {
    batch(() => {
        moment.value = time;
        position.value = history.value.before(time);
    });
}

export function togglePause(): void {
    goTo(position.peek() === undefined ? history.peek().last : undefined);
}

export function show(opened: Recording | undefined): void {
    batch(() => {
        recording.value = opened;
        goTo(undefined);
    });
}

// Playing: the time goes on by itself, from where it is, or from the beginning if that is the end.

export const speeds = [0.1, 0.25, 0.5, 1, 2, 4, 10, 60];
export const speed = signal(1);
export const playing = signal(false);

export function togglePlaying(): void {
    playing.value = !playing.value;
    if (!playing.value) return;
    const { from, to } = extent.value;
    if (shownTime.value >= to) goToTime(from);
    playing.value = true;
    let before = performance.now();
    const go = (time: number): void => {
        if (!playing.peek()) return;
        const next = shownTime.peek() + Math.max(time - before, 0) * speed.peek();
        before = time;
        if (next >= extent.peek().to) goTo(undefined);
        else {
            goToTime(next);
            requestAnimationFrame(go);
        }
    };
    requestAnimationFrame(go);
}
