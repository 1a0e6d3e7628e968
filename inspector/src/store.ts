// All that the page knows and shows, as signals, and what moves them. Components read from here and keep nothing themselves.

import { computed, effect, signal } from '@preact/signals';

import { request, RequestFailure } from './io/requests';
import { Stream } from './io/stream';
import { fromHash, toHash } from './model/address';
import { type Document, flag, text } from './model/documents';
import { apartPose, flatPose, type Pose } from './model/geometry';
import { History } from './model/history';
import { type HitResult, hitTest } from './model/hit';
import { displayOf, find, lossesOf, SceneMaker, watches } from './model/scene';
import { watched } from './model/state';

// Time: the states that have arrived, and the one that is shown.

export const history = new History();
const arrived = signal(0); // goes up when anything has
export const position = signal<number | undefined>(undefined); // nothing: the newest state, whatever arrives
export const now = signal(Date.now()); // goes on by the second

export const newest = computed(() => {
    void arrived.value;
    return history.head;
});
export const span = computed(() => {
    void arrived.value;
    void now.value;
    return { first: history.first, last: history.last };
});
const shownState = computed(() => (position.value === undefined ? newest.value : history.at(position.value)));
const maker = new SceneMaker();
export const scene = computed(() => maker.make(shownState.value));
export const losses = computed(() => lossesOf(newest.value).losses);

export function goTo(wanted: number | undefined): void {
    position.value = wanted === undefined ? undefined : history.clamped(wanted);
}

export function step(by: number): void {
    goTo((position.value ?? history.last) + by);
}

export function goToTime(time: number): void {
    goTo(history.before(time));
}

// Attention: what is selected, pointed at, and how the picture is seen.

export const selected = signal<string | undefined>(undefined);
export const hovered = signal<string | undefined>(undefined);
export const selectedItem = computed(() => (selected.value === undefined ? undefined : find(scene.value, selected.value)));
export const apart = signal(false);
export const pose = signal<Pose>(flatPose);
export const onlyDisplay = signal<string | undefined>(undefined);
export const mode = signal<'look' | 'hit' | 'draw'>('look');
export const help = signal(false);

export function pullApart(wanted: boolean): void {
    apart.value = wanted;
    if (wanted && mode.value === 'draw') mode.value = 'look';
}

// The hit test: where, and who gets it.

export interface Probe {
    readonly display: string;
    readonly x: number;
    readonly y: number;
}

export const probe = signal<Probe | undefined>(undefined);
export const pinned = signal(false);
export const hits = computed((): HitResult | undefined => {
    const at = probe.value;
    const display = at && scene.value.displays.find((each) => each.label === at.display);
    if (!display) return undefined;
    const documents = display.input.map((region) => region.document);
    return hitTest(documents, display.listed, at);
});

export function startHitTest(): void {
    mode.value = 'hit';
    if (probe.value) return;
    const item = selectedItem.value;
    const display = (item && displayOf(scene.value, item)) ?? scene.value.displays[0];
    if (display) probe.value = { display: display.label, x: display.width >> 1, y: display.height >> 1 };
}

// Changes, and what people are told.

export interface Notice {
    readonly number: number;
    readonly words: string;
    readonly failed: boolean;
}

export const about = signal<{ version: string; changes: boolean }>({ version: '', changes: false });
export const notices = signal<readonly Notice[]>([]);
export const busy = signal(0);
let noticeNumber = 0;

export function dismiss(number: number): void {
    notices.value = notices.value.filter((each) => each.number !== number);
}

export function tell(words: string, failed: boolean): void {
    const number = ++noticeNumber;
    notices.value = [...notices.value.slice(-3), { number, words, failed }];
    if (!failed) setTimeout(() => dismiss(number), 4000); // failures stay until they are dismissed
}

// Carries out a change and says how it went; true if it went well.
export async function carryOut(what: string, change: () => Promise<unknown>): Promise<boolean> {
    busy.value++;
    try {
        await change();
        tell(`${what}: done.`, false);
        return true;
    } catch (error) {
        tell(`${what}: ${error instanceof RequestFailure ? error.message : String(error)}`, true);
        return false;
    } finally {
        busy.value--;
    }
}

async function askAbout(): Promise<void> {
    try {
        const answer: Document = await request('GET', '/about');
        about.value = { version: text(answer, 'version'), changes: flag(answer, 'changes') };
    } catch {
        // The stream says that the gateway is away; asked again when it is back.
    }
}

// What the page remembers of itself from visit to visit.

function remembered(key: string): string | null {
    try {
        return localStorage.getItem(key);
    } catch {
        return null;
    }
}

function remember(key: string, value: string): void {
    try {
        localStorage.setItem(key, value);
    } catch {
        // Storage is switched off: remembered until the page is left.
    }
}

export type Theme = 'system' | 'light' | 'dark';
export const theme = signal<Theme>((remembered('theme') ?? 'system') as Theme);
const systemIsDark = signal(false);
export const dark = computed(() => theme.value === 'dark' || (theme.value === 'system' && systemIsDark.value));
export const singleKeys = signal(remembered('keys') !== 'off');

// The address, both ways.

function follow(hash: string): void {
    const link = fromHash(hash);
    if (link.selected !== undefined) selected.value = link.selected;
    apart.value = link.apart === true;
    onlyDisplay.value = link.display;
    if (link.at === undefined) goTo(undefined);
    else if (history.last >= 0 && history.before(link.at) > history.first) goToTime(link.at);
    else tell(`This page has no record of ${new Date(link.at).toLocaleTimeString()}: it shows what is now.`, true);
}

export function linkHere(): string {
    const at = position.value === undefined ? undefined : history.entry(history.clamped(position.value))?.time;
    return toHash({ selected: selected.value, at, apart: apart.value, display: onlyDisplay.value });
}

const trimEvery = 1000;

export function start(): void {
    follow(location.hash);
    addEventListener('hashchange', () => {
        if (location.hash !== linkHere()) follow(location.hash);
    });
    effect(() => {
        const hash = linkHere();
        if (hash !== location.hash && !(hash === '#/' && location.hash === '')) globalThis.history.replaceState(null, '', hash);
    });
    const scheme = matchMedia('(prefers-color-scheme: dark)');
    const follows = (): void => void (systemIsDark.value = scheme.matches);
    scheme.addEventListener('change', follows);
    follows();
    effect(() => {
        document.documentElement.dataset['theme'] = dark.value ? 'dark' : 'light';
        remember('theme', theme.value);
        remember('keys', singleKeys.value ? 'on' : 'off');
    });

    const stream = new Stream((arrivals) => {
        if (!history.take(arrivals)) return;
        arrived.value++;
    });
    const displays = computed(() => watched(newest.value, watches.displays).elements);
    effect(() => {
        const inputs = [...displays.value.values()].map((display) => watches.input(text(display, 'name')));
        stream.watch([watches.displays, watches.displayables, watches.layers, watches.popups, ...inputs.sort()]);
    });
    const connected = computed(() => !losses.value.some((loss) => loss.service === 'the gateway'));
    effect(() => {
        if (connected.value) void askAbout();
    });
    setInterval(() => {
        const time = Date.now();
        history.trim(time);
        now.value = time;
    }, trimEvery);
}

export { apartPose, flatPose };
