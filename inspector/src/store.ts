// All that the page knows and shows, as signals, and what moves them. Components read from here and keep nothing themselves.

import { computed, effect, signal } from '@preact/signals';

import { displayNames, late } from './io/first_answers';
import { request, RequestFailure } from './io/requests';
import { Stream } from './io/stream';
import { fromHash, toHash } from './model/address';
import { clock } from './model/describe';
import { type Document, flag, text } from './model/documents';
import { apartPose, flatPose, type Pose } from './model/geometry';
import { type HitResult, hitTest } from './model/hit';
import { displayOf, find, lossesOf, SceneMaker, watches } from './model/scene';
import { watched } from './model/state';
import { tell } from './notices';
import { opening, openLinked } from './opening';
import * as time from './time';

export * from './notices';
export * from './opening';
export * from './time';

const maker = new SceneMaker();
export const scene = computed(() => maker.make(time.shownState.value));
const liveLosses = computed(() => lossesOf(time.newest.value).losses);
// Of the present, even if the past is shown; of a recording, those of the time that is shown.
export const losses = computed(() => (time.recording.value ? scene.value.losses : liveLosses.value));

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

// Changes.

export const about = signal({ version: '', changes: false, recordings: false });
export const mayChange = computed(() => about.value.changes && time.isLive.value);
export const busy = signal(0);

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
        const [changes, recordings] = [flag(answer, 'changes'), flag(answer, 'recordings')];
        about.value = { version: text(answer, 'version'), changes, recordings };
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
    if (openLinked(link.recording, link.file, link.at)) return;
    const { history, recording, fromUtc, goTo, goToTime } = time;
    const { first, last } = history.peek();
    if (link.at === undefined) goTo(undefined);
    else if (recording.peek() || (last >= 0 && history.peek().before(link.at) > first)) goToTime(link.at);
    else tell(`This page has no record of ${clock(link.at, fromUtc.peek(), false)}: it shows what is now.`, true);
}

export function linkHere(): string {
    const { name, served } = time.recording.value ?? {};
    return toHash({
        selected: selected.value,
        at: time.position.value === undefined ? undefined : time.shownTime.value,
        apart: apart.value,
        display: onlyDisplay.value,
        recording: served ? name : undefined,
        file: served ? undefined : name,
    });
}

const trimEvery = 1000;

export function start(): void {
    follow(location.hash);
    addEventListener('hashchange', () => {
        if (location.hash !== linkHere()) follow(location.hash);
    });
    effect(() => {
        const hash = linkHere();
        // While a recording is being opened, or played, the address would not be worth the effort.
        if (opening.value || time.playing.value) return;
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

    effect(() => {
        if (time.recording.value && mode.peek() === 'draw') mode.value = 'look';
    });

    const stream = new Stream(time.take);
    const displays = computed(() => watched(time.newest.value, watches.displays));
    const expected = signal<readonly string[] | undefined>(undefined);
    void displayNames().then((names) => (expected.value = names));
    effect(() => {
        const { elements, read } = displays.value;
        const names = read ? [...elements.values()].map((display) => text(display, 'name')) : expected.value;
        const { displayables, layers, popups, placements } = watches;
        if (names) stream.watch([watches.displays, displayables, layers, popups, placements, ...names.map(watches.input).sort()]);
    });
    const connected = computed(() => hasNews.value && !liveLosses.value.some((loss) => loss.service === 'the gateway'));
    effect(() => {
        if (connected.value) setTimeout(() => void askAbout()); // after what has arrived is shown
    });
    setInterval(time.tick, trimEvery);
}

const hasNews = computed(() => time.newest.value.size > 0);

// When there is something to show, or the first answers take long. Showing nothing first would take as long as showing something.
export function firstNews(): Promise<unknown> {
    const news = new Promise<void>((done) => {
        const stop = effect(() => {
            if (hasNews.value) done();
        });
        void late().then(stop);
    });
    return Promise.race([news, late()]);
}

export { apartPose, flatPose };
