import { afterEach, beforeEach, expect, test, vi } from 'vitest';

import { Pulse } from '../../src/io/pulse';

beforeEach(() => vi.useFakeTimers());
afterEach(() => vi.useRealTimers());

test('after a silence the gateway is asked, and what becomes of it is said once', async () => {
    let answers = true;
    let asked = 0;
    const told: boolean[] = [];
    const pulse = new Pulse(
        () => {
            asked++;
            return answers ? Promise.resolve() : Promise.reject(new Error('no answer'));
        },
        (state) => told.push(state),
    );
    for (let second = 0; second < 60; second++) {
        pulse.beat();
        await vi.advanceTimersByTimeAsync(1000);
    }
    expect(asked).toBe(0); // not while something arrives
    await vi.advanceTimersByTimeAsync(60_000);
    expect(asked).toBeGreaterThan(3);
    expect(told).toEqual([]);
    answers = false;
    await vi.advanceTimersByTimeAsync(20_000);
    expect(told).toEqual([false]);
    answers = true;
    await vi.advanceTimersByTimeAsync(5000);
    expect(told).toEqual([false, true]);
});
