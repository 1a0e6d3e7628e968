// Turns what a recording says into the arrivals that the page knows from the gateway.
//
// A source of the recording is a part of what the page watches: popups are recorded display by display, and a touch surface is put
// together from the input manager's regions and from the layers that the display manager has switched off, as the gateway does it.
// Each entry becomes one step of the time line, since it is one whole answer: what is half done was never true. Whatever of the
// recording the page does not show is passed over.

import { type Document, type Element, isDocument, list, object, text } from './documents';
import type { RecordedEntry } from './recording_reader';
import { placementOf, watches } from './scene';
import type { Arrival } from './state';

// What an answer has brought: elements that are new or other than before, and ids of those that have gone.
interface News {
    readonly elements: readonly Element[];
    readonly removed: readonly string[];
}

// "" for none. The display manager's are numbers.
function idOf(element: unknown): string {
    const id = isDocument(element) ? element['id'] : undefined;
    return typeof id === 'string' || typeof id === 'number' ? String(id) : '';
}

function withId(value: unknown): value is Element {
    return isDocument(value) && text(value, 'id') !== '';
}

// The last answer of a source. Changes are applied to it in place, since nobody else has it.
class Answer {
    // The elements that the last change has set or inserted, if it did nothing else.
    touched: readonly unknown[] | undefined;
    private document: unknown;
    private known = false;

    get value(): Document {
        return isDocument(this.document) ? this.document : {};
    }
    // The elements of the member `array`, or of the answer itself.
    elements(array: string): unknown[] {
        const value = array === '' ? this.document : this.value[array];
        return Array.isArray(value) ? (value as unknown[]) : [];
    }

    // What does not fit, if it does not.
    take(entry: RecordedEntry): string | undefined {
        this.touched = undefined;
        if (entry.kind === 'missing') this.forget();
        if (entry.kind === 'state') {
            this.document = entry.document;
            this.known = true;
        }
        if (entry.kind !== 'change') return undefined;
        const fault = this.known ? this.change(entry) : 'there is none before it';
        if (fault !== undefined) this.forget();
        return fault;
    }

    private forget(): void {
        this.touched = undefined;
        this.document = undefined;
        this.known = false;
    }

    private change({ document, array, steps }: RecordedEntry): string | undefined {
        const members = isDocument(document) ? Object.entries(document) : [];
        if (members.length > 0 || array !== '') {
            if (!isDocument(this.document)) return 'the document before has no members';
            const all = Object.entries({ ...this.document, ...Object.fromEntries(members) });
            this.document = Object.fromEntries(
                all.filter(([key, value]) => value !== null || !members.some(([own]) => own === key)),
            );
        }
        const elements = this.elements(array);
        let simple = !members.some(([, value]) => Array.isArray(value));
        for (const { step, at, element } of steps) {
            if (at >= elements.length + (step === 'insert' ? 1 : 0)) return `the document before has no element ${at}`;
            simple &&= step === 'insert' || (step === 'set' && idOf(elements[at]) === idOf(element));
            if (step === 'insert') elements.splice(at, 0, element);
            else if (step === 'erase') elements.splice(at, 1);
            else elements[at] = element;
        }
        if (simple) this.touched = steps.map(({ element }) => element);
        return undefined;
    }
}

// A source, and of which watch it is a part.
interface Part {
    readonly watch: string;
    readonly array: string; // where its elements are, if they are those of the watch
    readonly answer: Answer;
    readonly shown: Map<string, Element>; // its elements in the watch
}

const lists: Readonly<Record<string, string>> = {
    '/displays': watches.displays,
    '/displayables': watches.displayables,
    '/layerconfigurations': watches.layers,
};

function watchOf({ service, path, parameters }: RecordedEntry): { watch: string; array: string } | undefined {
    const names = Object.keys(parameters);
    if (service === '/hmx' && path === '/popups')
        return names.length === 1 && names[0] === 'display' ? { watch: watches.popups, array: 'data' } : undefined;
    if (names.length > 0) return undefined;
    if (service === '/hmx') return lists[path] === undefined ? undefined : { watch: lists[path], array: 'data' };
    if (service === '/hmxinputmanager') return { watch: watches.input(displayIn(path)), array: '' };
    if (service !== '/hmxdisplaymanager') return undefined;
    if (path === '/displayables') return { watch: watches.placements, array: 'infoForAllDisplayables' };
    return path === '/layerConfig' ? { watch: '', array: '' } : undefined;
}

function displayIn(path: string): string {
    try {
        return decodeURIComponent(path.slice(1));
    } catch {
        return path.slice(1);
    }
}

function inactiveLayers(configurations: readonly unknown[]): Map<string, unknown[]> {
    const found = new Map<string, unknown[]>();
    for (const each of configurations) {
        const configuration = object(isDocument(each) ? each : {}, 'layersForDisplay');
        const off = list(object(configuration, 'layers'), 'infoForAllLayers').filter((layer) => layer['active'] === false);
        found.set(
            text(object(configuration, 'display'), 'name'),
            off.map((layer) => layer['id']).filter((id) => typeof id === 'number'),
        );
    }
    return found;
}

export class RecordedStates {
    hasConfigurations = false; // region configurations have been there, which are passed over
    private readonly parts = new Map<string, Part>();
    private readonly losses = new Map<string, Set<string>>(); // by watch, the sources that are lost
    private inactive: Map<string, unknown[]> | undefined;
    private latest = 0;

    // `begun`: the time of the origin. `report`: hears of changes that do not fit.
    constructor(
        private readonly begun: number,
        private readonly report: (line: number, what: string) => void,
    ) {}

    arrivals(entry: RecordedEntry): Arrival[] {
        // Times of different sources may be out of order; those of a time line may not.
        this.latest = Math.max(this.latest, Math.floor(this.begun + entry.time));
        const part = this.partOf(entry);
        if (!part) return [];
        const { watch } = part;
        const arrivals: Arrival[] = [];
        const say = (to: string, event: string, data: Document): void =>
            void arrivals.push({ watch: to, event, data, time: this.latest, size: 0 });
        const tell = (to: string, { elements, removed }: News): void => {
            if (elements.length > 0 || removed.length > 0 || entry.kind === 'state') say(to, 'answer', { elements, removed });
        };
        switch (entry.kind) {
            case 'lost':
            case 'failed': {
                const lost = this.losses.get(watch) ?? new Set();
                lost.add(entry.source);
                this.losses.set(watch, lost);
                if (watch !== '') say(watch, 'lost', { service: entry.service, reason: entry.reason });
                break;
            }
            case 'ended':
                break;
            default: {
                const lost = this.losses.get(watch);
                if (lost?.delete(entry.source) && lost.size === 0) say(watch, 'back', {});
                const fault = part.answer.take(entry);
                if (fault !== undefined) {
                    this.report(entry.line, `a change of ${entry.path} does not fit the answer before: ${fault}`);
                    break;
                }
                if (watch === '') this.takeLayers(part, tell);
                else tell(watch, this.news(part));
            }
        }
        return arrivals;
    }

    private partOf(entry: RecordedEntry): Part | undefined {
        const known = this.parts.get(entry.source);
        if (known) return known;
        const place = watchOf(entry);
        if (entry.kind === 'state' && entry.path.startsWith('/regionconfigurations/')) this.hasConfigurations = true;
        if (!place) return undefined;
        const made = { ...place, answer: new Answer(), shown: new Map() };
        this.parts.set(entry.source, made);
        return made;
    }

    // The parts of the page's surfaces that follow from the layers.
    private takeLayers(part: Part, tell: (watch: string, news: News) => void): void {
        this.inactive = inactiveLayers(part.answer.elements(''));
        for (const surface of this.parts.values()) {
            if (surface.watch.startsWith('/input/') && surface.shown.size > 0)
                tell(surface.watch, this.shown(surface, this.surface(surface)));
        }
    }

    private surface({ watch, answer }: Part): Element[] {
        const name = displayIn(watch.slice('/input'.length));
        const { value } = answer;
        if (Object.keys(value).length === 0) return [];
        const inactiveLayers = this.inactive && { inactiveLayers: this.inactive.get(name) ?? [] };
        return [{ ...value, id: name, name, ...inactiveLayers }];
    }

    private news(part: Part): News {
        const { watch, array, answer } = part;
        if (watch.startsWith('/input/')) return this.shown(part, this.surface(part));
        const asShown = watch === watches.placements ? placementOf : (each: unknown): unknown => each;
        const { touched } = answer;
        const elements = (touched ?? answer.elements(array)).map(asShown).filter(withId);
        if (!touched) return this.shown(part, elements);
        for (const each of elements) part.shown.set(each.id, each);
        return { elements, removed: [] };
    }

    // The way from what is shown of a part to what is to be shown.
    private shown(part: Part, elements: readonly Element[]): News {
        const gone = new Map(part.shown);
        part.shown.clear();
        for (const each of elements) {
            part.shown.set(each.id, each);
            gone.delete(each.id);
        }
        return { elements, removed: [...gone.keys()] };
    }
}
