// Writes the time line of the page as a recording (docs/recording.md), for `hmxctl --from` and for this page.
//
// The file begins with the oldest state that is kept, and has a line for each step since. Popups are written display by display, as
// a recorder follows them; what is lost with the gateway is lost as a whole. A source that returns is written whole. If the page has
// read it anew by then, that answer is written, and not the last one that was known before.
//
// The gateway passes on the input manager's words as they are. Of the display manager it passes on displayables, and which layers
// are switched off; the latter is written as a layer configuration of the display manager, so that `hmxctl hit` knows it.

import { type Document, type Element, list, text } from './documents';
import type { History } from './history';
import { configurationId, watches } from './scene';
import { type Entry, gateway, type State, watched } from './state';

export interface WrittenHead {
    readonly programs: Readonly<Record<string, string>>;
    readonly zone: string;
    readonly fromUtc: number; // milliseconds
    readonly steady: (time: number) => number; // a clock that is never set, in milliseconds, at a time of the wall clock
}

const nanoseconds = 1e6; // in a millisecond

function sinceOrigin(time: number, origin: number): number {
    return Math.max(time - origin, 0) * nanoseconds;
}

function wallText(time: number, fromUtc: number): string {
    const minutes = Math.abs(fromUtc) / 60_000;
    const two = (value: number): string => String(Math.floor(value)).padStart(2, '0');
    const distance = `${fromUtc < 0 ? '-' : '+'}${two(minutes / 60)}:${two(minutes % 60)}`;
    return `${new Date(time + fromUtc).toISOString().slice(0, 23)}000000${distance}`;
}

// A source of the recording, and what was written of it.
class Trail {
    isKnown = false; // its last answer stands
    isLost = false;
    private count = 0;
    private wasLost = false;
    private ids: string[] = [];

    constructor(
        private readonly service: string,
        private readonly path: string,
        private readonly write: (line: string) => void,
        private readonly parameters?: Document,
    ) {}

    private line(time: number, event: string, rest: Document): void {
        const { service, path, parameters } = this;
        this.write(JSON.stringify({ t: time, n: ++this.count, service, path, parameters, event, ...rest }));
    }

    private back(): Document {
        const back = this.wasLost ? { back: true } : {};
        this.wasLost = this.isLost = false;
        this.isKnown = true;
        return { status: 200, ...back };
    }

    answer(time: number, document: unknown): void {
        this.line(time, 'state', { ...this.back(), document });
    }

    whole(time: number, elements: readonly Element[]): void {
        this.ids = elements.map((each) => each.id);
        this.answer(time, { total: elements.length, totalPages: 1, data: elements });
    }

    change(time: number, changes: readonly { readonly id: string; readonly after?: Element | undefined }[]): void {
        const before = this.ids.length;
        const steps = changes.flatMap(({ id, after }) => {
            const at = this.ids.indexOf(id);
            if (!after) return at < 0 ? [] : (this.ids.splice(at, 1), [{ step: 'erase', at }]);
            return at >= 0
                ? [{ step: 'set', at, element: after }]
                : [{ step: 'insert', at: this.ids.push(id) - 1, element: after }];
        });
        const total = this.ids.length === before ? {} : { document: { total: this.ids.length } };
        this.line(time, 'change', { status: 200, array: 'data', steps, ...total });
    }

    lose(time: number, reason: string): void {
        if (!this.isLost) this.line(time, 'lost', { status: 503, reason });
        this.isLost = this.wasLost = true;
        this.isKnown = false;
    }

    miss(time: number): void {
        if (this.isKnown || this.isLost) this.line(time, 'missing', { status: 404, reason: 'there is no such display' });
        this.isKnown = this.isLost = this.wasLost = false;
    }
}

class Writer {
    readonly lines: string[] = [];
    private readonly trails = new Map<string, Trail>();
    private layers = '';
    private followed = new Set<string>(); // displays whose popups are written

    constructor(
        private readonly origin: number,
        private state: State,
    ) {
        // Displays come last, since popups are followed by display.
        const isLast = (watch: string): number => Number(watch === watches.displays);
        for (const watch of [...state.keys()].sort((a, b) => isLast(a) - isLast(b))) {
            const { read, loss } = watched(state, watch);
            if (read) this.whole(watch, 0);
            if (loss) this.lose(watch, 0, loss.reason);
        }
    }

    // `next`: the state after the entry. `renewed`: what has returned is read anew soon.
    take(entry: Entry, next: State, renewed: (watch: string) => boolean): void {
        const { watch, kind, after } = entry;
        const time = sinceOrigin(entry.time, this.origin);
        this.state = next;
        if (kind === 'lost') this.lose(watch, time, after.loss?.reason ?? '');
        else if (kind === 'back') {
            for (const each of watch === gateway ? [...next.keys()] : [watch]) {
                const { read, loss } = watched(next, each);
                if (read && !loss && !this.isLost(gateway) && !renewed(each)) this.whole(each, time);
            }
        } else if (kind === 'read') this.whole(watch, time);
        else this.change(entry, time);
    }

    private isLost(watch: string): boolean {
        return watched(this.state, watch).loss !== undefined;
    }

    private elements(watch: string): Element[] {
        return [...watched(this.state, watch).elements.values()];
    }

    private trail(service: string, path: string, parameters?: Document): Trail {
        const key = service + path + JSON.stringify(parameters ?? null);
        const known = this.trails.get(key);
        if (known) return known;
        const made = new Trail(service, path, (line) => void this.lines.push(line), parameters);
        this.trails.set(key, made);
        return made;
    }

    private displays(): string[] {
        return this.elements(watches.displays).map((display) => text(display, 'name'));
    }

    private popups(display: string): Trail {
        return this.trail('/hmx', '/popups', { display });
    }

    private popupsOf(display: string): Element[] {
        return this.elements(watches.popups).filter((popup) => text(popup, 'display') === display);
    }

    private trailsOf(watch: string): Trail[] {
        if (watch === gateway) return [...this.trails.values()].filter((trail) => trail.isKnown);
        if (watch === watches.popups) return this.displays().map((display) => this.popups(display));
        if (watch === watches.placements) return [this.trail('/hmxdisplaymanager', '/displayables')];
        if (watch.startsWith('/hmx/')) return [this.trail('/hmx', watch.slice('/hmx'.length))];
        return [this.trail('/hmxinputmanager', watch.slice('/input'.length))];
    }

    private lose(watch: string, time: number, reason: string): void {
        for (const trail of this.trailsOf(watch)) trail.lose(time, watch === gateway ? `the gateway: ${reason}` : reason);
        if (watch === gateway) this.layers = '';
    }

    private whole(watch: string, time: number): void {
        const [trail] = this.trailsOf(watch);
        if (watch === gateway) return;
        if (watch === watches.popups) {
            for (const display of this.displays()) this.popups(display).whole(time, this.popupsOf(display));
        } else if (watch === watches.placements) {
            trail?.answer(time, {
                infoForAllDisplayables: this.elements(watch).map((each) => ({ ...each, id: Number(each.id) })),
            });
        } else if (watch.startsWith('/hmx/')) {
            trail?.whole(time, this.elements(watch));
            if (watch === watches.displays) this.follow(time);
        } else {
            const [surface] = this.elements(watch);
            const own = ['id', 'name', 'inactiveLayers']; // of the gateway
            const said = Object.entries(surface ?? {}).filter(([member]) => !own.includes(member));
            if (surface) trail?.answer(time, Object.fromEntries(said));
            else trail?.miss(time);
        }
        this.writeLayers(watch, time);
    }

    // Popups are followed display by display: those of a new one are written, those of one that has gone are missing.
    private follow(time: number): void {
        const displays = new Set(this.displays());
        if (!watched(this.state, watches.popups).read || this.isLost(watches.popups)) return;
        for (const display of displays) {
            if (!this.popups(display).isKnown) this.popups(display).whole(time, this.popupsOf(display));
        }
        for (const name of this.followed) {
            if (displays.has(name)) continue;
            this.popups(name).miss(time);
            for (const trail of this.trailsOf(watches.input(name))) trail.miss(time);
        }
        this.followed = displays;
    }

    private change({ watch, changes }: Entry, time: number): void {
        if (watch === watches.popups) {
            const displayOf = ({ before, after }: (typeof changes)[number]): string => text(after ?? before ?? {}, 'display');
            for (const display of new Set(changes.map(displayOf))) {
                const trail = this.popups(display);
                const own = changes.filter((change) => displayOf(change) === display);
                if (trail.isKnown) trail.change(time, own);
                else if (this.displays().includes(display)) trail.whole(time, this.popupsOf(display));
            }
        } else if (watch.startsWith('/hmx/')) {
            this.trailsOf(watch)[0]?.change(time, changes);
            if (watch === watches.displays) this.follow(time);
            this.writeLayers(watch, time);
        } else this.whole(watch, time);
    }

    // The layers as the display manager would list them, if anything is known of those that are switched off.
    private writeLayers(watch: string, time: number): void {
        if (watch !== watches.layers && watch !== watches.displays && !watch.startsWith('/input/')) return;
        const configurations = watched(this.state, watches.layers).elements;
        const document = this.displays().flatMap((name) => {
            const inactive = this.elements(watches.input(name))[0]?.['inactiveLayers'];
            const listed = list(configurations.get(configurationId(name)) ?? {}, 'layers');
            if (!Array.isArray(inactive) || listed.length === 0) return [];
            const infoForAllLayers = listed.map((layer) => ({ ...layer, active: !inactive.includes(layer['id']) }));
            return [{ layersForDisplay: { display: { name }, layers: { infoForAllLayers } } }];
        });
        const known = JSON.stringify(document);
        if (known === this.layers || (document.length === 0 && this.layers === '')) return;
        this.layers = known;
        this.trail('/hmxdisplaymanager', '/layerConfig').answer(time, document);
    }
}

// The lines of the file, which reaches until the time `end`. Nothing if the page has not seen anything yet.
export function recordingOf(history: History, head: WrittenHead, end: number): string[] {
    const first = history.entry(history.first + 1);
    if (!first) return [];
    const origin = Math.floor(first.time);
    const writer = new Writer(origin, history.at(history.first));
    const renewed = new Map<number, ReadonlySet<string>>(); // by the numbers of returns: what is read anew next
    const soon = new Set<string>();
    for (let i = history.last; i > history.first; --i) {
        const entry = history.entry(i);
        if (entry?.kind === 'back') renewed.set(i, new Set(soon));
        if (!entry) continue;
        if (entry.kind === 'read') soon.add(entry.watch);
        else if (entry.watch === gateway && entry.kind === 'lost') soon.clear();
        else soon.delete(entry.watch);
    }
    for (let i = history.first + 1; i <= history.last; ++i) {
        const entry = history.entry(i);
        if (entry) writer.take(entry, history.at(i), (watch) => renewed.get(i)?.has(watch) ?? false);
    }
    const line = {
        recording: 1,
        programs: head.programs,
        wall: wallText(origin, head.fromUtc),
        zone: head.zone,
        origin: Math.round(head.steady(origin) * nanoseconds),
        domain: '',
        upstream: false,
    };
    return [JSON.stringify(line), ...writer.lines, JSON.stringify({ t: sinceOrigin(end, origin), event: 'stopped' })];
}
