// Reads the lines of a recording (docs/recording.md) into entries that follow upon one another.
//
// Two things are checked: each line by itself, and by their numbers that the entries of each source are complete and in order.
// One that was read already is left out. One that comes too early waits for those before it; with the source's next whole answer,
// or when too many wait, those before it count as missing, and all changes up to that answer are left out. Whatever is left out is
// reported with the number of its line, and everything else is handed out.

import { type Document, flag, isDocument, text } from './documents';

export interface Head {
    readonly begun: number | undefined; // milliseconds of the wall clock where entries have the time 0; nothing if it is not known
    readonly fromUtc: number; // milliseconds by which clocks differed there
    readonly zone: string;
    readonly upstream: boolean;
}

export interface Step {
    readonly step: 'set' | 'insert' | 'erase';
    readonly at: number;
    readonly element: unknown;
}

const kinds = ['state', 'change', 'lost', 'missing', 'ended', 'failed'] as const;

export interface RecordedEntry {
    readonly line: number;
    readonly time: number; // milliseconds since the origin
    readonly number: number | undefined;
    readonly service: string;
    readonly path: string;
    readonly parameters: Document;
    readonly source: string; // all three of them
    readonly kind: (typeof kinds)[number];
    readonly reason: string;
    readonly document: unknown;
    readonly array: string;
    readonly steps: readonly Step[];
}

export interface Problem {
    readonly line: number;
    readonly what: string;
}

const version = 1;
const deepest = 80;
const mostEarly = 64;
const mostSources = 4096;
const mostProblems = 1000; // that are kept; all are counted
export const longestLine = 64 << 20;

const cutLine = 'incomplete, as the last line of a recorder that was killed may be';
const unknownHead: Head = { begun: undefined, fromUtc: 0, zone: '', upstream: false };

// What makes a file no recording that this page reads.
export class NoRecording extends Error {}

class Unreadable extends Error {}

function isTooDeep(line: string): boolean {
    let depth = 0;
    let inString = false;
    for (let i = 0; i < line.length; ++i) {
        const code = line.charCodeAt(i);
        if (inString) {
            if (code === 0x5c) ++i;
            else if (code === 0x22) inString = false;
        } else if (code === 0x22) inString = true;
        else if (code === 0x7b || code === 0x5b) {
            if (++depth > deepest) return true;
        } else if (code === 0x7d || code === 0x5d) --depth;
    }
    return false;
}

function objectIn(line: string): Document {
    if (isTooDeep(line)) throw new Unreadable('nested too deep');
    let value: unknown;
    try {
        value = JSON.parse(line);
    } catch {
        throw new Unreadable('no complete JSON object');
    }
    if (!isDocument(value)) throw new Unreadable('no JSON object');
    return value;
}

function natural(of: Document, member: string): number {
    const value = of[member];
    if (typeof value !== 'number' || !Number.isInteger(value) || value < 0)
        throw new Unreadable(`no entry: "${member}" is not a whole number`);
    return value;
}

function headOf(object: Document): Head {
    if (!('recording' in object)) throw new Unreadable('no head of a recording');
    const written = natural(object, 'recording');
    if (written > version)
        throw new NoRecording(`written in version ${written} of the format; this page reads version ${version}`);
    const wall = text(object, 'wall');
    const [zone, sign, hours = '0', minutes = '0'] = /(?:Z|([+-])(\d\d):?(\d\d))$/.exec(wall) ?? [];
    // Dates have milliseconds; what comes after them decides on which side of one an entry is.
    const begun = Date.parse(zone === undefined ? `${wall}Z` : wall) + Number(`0.${/\.\d{3}(\d+)/.exec(wall)?.[1] ?? '0'}`);
    return {
        begun: Number.isNaN(begun) ? undefined : begun,
        fromUtc: (sign === '-' ? -1 : 1) * (Number(hours) * 60 + Number(minutes)) * 60_000,
        zone: text(object, 'zone'),
        upstream: flag(object, 'upstream'),
    };
}

function stepOf(value: unknown): Step {
    if (!isDocument(value)) throw new Unreadable('a step that is no object');
    const { step } = value;
    if (step !== 'set' && step !== 'insert' && step !== 'erase')
        throw new Unreadable(`no step is called ${JSON.stringify(step)}`);
    if (step !== 'erase' && !('element' in value)) throw new Unreadable('a step without its element');
    return { step, at: natural(value, 'at'), element: value['element'] };
}

function sorted(parameters: Document): string {
    const entries = Object.entries(parameters).sort(([a], [b]) => (a < b ? -1 : 1));
    return entries.length === 0 ? '' : ` ${JSON.stringify(entries)}`;
}

const nanoseconds = 1e6; // in a millisecond

function entryOf(object: Document, line: number): RecordedEntry {
    const time = natural(object, 't') / nanoseconds;
    const number = 'n' in object ? natural(object, 'n') : undefined;
    const service = text(object, 'service');
    const path = text(object, 'path');
    const parameters = isDocument(object['parameters']) ? object['parameters'] : {};
    if (service === '' || path === '') throw new Unreadable('no service, or no path');
    const kind = kinds.find((each) => each === object['event']);
    if (kind === undefined) throw new Unreadable(`no event is called ${JSON.stringify(object['event'])}`);
    if (kind === 'state' && !('document' in object)) throw new Unreadable('a state without its document');
    const list = object['steps'];
    if (kind === 'change' && !Array.isArray(list)) throw new Unreadable('a change without its steps');
    return {
        line,
        time,
        number,
        service,
        path,
        parameters,
        source: `${service} ${path}${sorted(parameters)}`,
        kind,
        reason: text(object, 'reason'),
        document: object['document'],
        array: text(object, 'array'),
        steps: kind === 'change' && Array.isArray(list) ? list.map(stepOf) : [],
    };
}

interface Sequence {
    last: number | undefined;
    time: number;
    whole: boolean; // changes can be applied
    early: Map<number, RecordedEntry>;
}

function counted(count: number): string {
    return count === 1 ? '1 entry' : `${count} entries`;
}

export class RecordingReader {
    head: Head = unknownHead;
    lines = 0;
    problemCount = 0;
    readonly problems: Problem[] = [];
    private headLine: string | undefined;
    private begun = false; // a good line has been read
    private over = false;
    private firstReason = 'it is empty';
    private latest = 0;
    private stopped = 0;
    private readonly sequences = new Map<string, Sequence>();

    constructor(private readonly take: (entry: RecordedEntry) => void) {}

    // Until when is recorded, as far as it has been read: when the recorder stopped, or the latest entry.
    get until(): number {
        return Math.max(this.latest, this.stopped);
    }

    report(line: number, what: string): void {
        ++this.problemCount;
        if (this.problems.length < mostProblems) this.problems.push({ line, what });
    }

    // The next line, without its end; `complete`: it had one. Nothing for a line that is too long to be held. Errors: NoRecording.
    next(line: string | undefined, complete = true): void {
        const number = ++this.lines;
        if (this.over || line === '') return;
        try {
            if (line === undefined) throw new Unreadable('longer than any entry');
            if (this.begun && line === this.headLine) {
                this.report(number, 'the head again');
                return;
            }
            const object = objectIn(line);
            if (!this.begun) this.begin(object, line, number);
            else if ('recording' in object && !('event' in object)) {
                headOf(object);
                this.report(number, 'another recording begins here; it is not read');
                this.finish();
            } else if (object['event'] === 'stopped' && !('path' in object)) {
                this.stopped = Math.max(this.stopped, natural(object, 't') / nanoseconds);
            } else this.sort(entryOf(object, number));
        } catch (error) {
            if (!(error instanceof Unreadable) && !(error instanceof NoRecording && this.begun)) throw error;
            if (this.begun) this.report(number, complete ? error.message : cutLine);
            else if (number === 1) this.firstReason = `its first line is ${error.message}`;
        }
    }

    // After the last line. Errors: NoRecording, if none was good.
    end(): void {
        if (!this.begun) throw new NoRecording(`no recording: ${this.firstReason}`);
        if (!this.over) this.finish();
    }

    private begin(object: Document, line: string, number: number): void {
        if ('recording' in object) {
            this.head = headOf(object);
            this.headLine = line;
            this.begun = true;
            if (number > 1) this.report(1, `no head; it is in line ${number}`);
            return;
        }
        const first = entryOf(object, number);
        this.begun = true;
        this.report(1, 'no head: when and with what it was recorded is not known');
        this.sort(first);
    }

    private sort(entry: RecordedEntry): void {
        let sequence = this.sequences.get(entry.source);
        if (!sequence) {
            if (this.sequences.size >= mostSources) throw new Unreadable('of one source more than this page reads');
            sequence = { last: undefined, time: 0, whole: false, early: new Map() };
            this.sequences.set(entry.source, sequence);
        }
        const { number } = entry;
        if (number === undefined && entry.time < sequence.time) {
            this.report(entry.line, 'it goes back in time');
            return;
        }
        if (number !== undefined && sequence.last !== undefined) {
            const expected = sequence.last + 1;
            if (number < expected || sequence.early.has(number)) {
                const again = number + 1 === expected;
                this.report(entry.line, again ? 'the entry before it again' : 'an entry that was read already, or too late');
                return;
            }
            if (number > expected && sequence.whole) {
                if (entry.kind !== 'state') {
                    sequence.early.set(number, entry);
                    if (sequence.early.size > mostEarly) this.giveUp(sequence);
                    return;
                }
                this.giveUp(sequence);
                if (number > sequence.last + 1) this.report(entry.line, this.gap(sequence.last, entry));
            }
        }
        this.pass(sequence, entry);
        for (;;) {
            const held = sequence.last === undefined ? undefined : sequence.early.get(sequence.last + 1);
            if (!held) return;
            sequence.early.delete(held.number ?? 0);
            this.report(held.line, 'it came before those that it follows; put in order');
            this.pass(sequence, held);
        }
    }

    private gap(last: number, entry: RecordedEntry): string {
        const missing = (entry.number ?? 0) - last - 1;
        return `${counted(missing)} of ${entry.path} ${missing === 1 ? 'is' : 'are'} missing before it`;
    }

    // Hands it out, if it can be applied.
    private pass(sequence: Sequence, entry: RecordedEntry): void {
        if (entry.number !== undefined) sequence.last = entry.number;
        sequence.time = entry.time;
        if (entry.kind === 'state') sequence.whole = true;
        if (entry.kind === 'change' && !sequence.whole) {
            this.report(entry.line, `a change of ${entry.path} to what is not known`);
            return;
        }
        if (entry.time < this.latest) this.report(entry.line, 'it is out of order: the lines before it are later');
        this.latest = Math.max(this.latest, entry.time);
        this.take(entry);
    }

    // Those before the ones that wait will not come.
    private giveUp(sequence: Sequence): void {
        const early = [...sequence.early.values()].sort((a, b) => (a.number ?? 0) - (b.number ?? 0));
        const [first] = early;
        if (!first) return;
        this.report(first.line, this.gap(sequence.last ?? 0, first));
        sequence.whole = false;
        sequence.early.clear();
        for (const each of early) this.pass(sequence, each);
    }

    private finish(): void {
        this.over = true;
        for (const sequence of this.sequences.values()) this.giveUp(sequence);
    }
}
