// Recordings from a file or from the gateway, read bit by bit, so that the page goes on meanwhile.
//
// Reading takes turns with everything else: after a slice of time it waits until the browser has done what is due. So it takes as
// long as it takes, but a click is never late by more than one slice, or one line where that is very long.

import { type Document, list, text, whole } from '../model/documents';
import { History, type Limits, recordingLimits } from '../model/history';
import { RecordedStates } from '../model/recorded_states';
import type { Arrival } from '../model/state';
import { type Head, longestLine, NoRecording, type Problem, RecordingReader } from '../model/recording_reader';
import { request } from './requests';

export interface Recording {
    readonly name: string;
    readonly served: boolean; // by the gateway
    readonly head: Head;
    readonly history: History;
    readonly end: number; // until when is recorded, on the wall clock
    readonly hasConfigurations: boolean; // region configurations, which the page does not show
    readonly lines: number;
    readonly problems: readonly Problem[];
    readonly problemCount: number;
}

export interface Listed {
    readonly name: string;
    readonly size: number;
    readonly modified: number; // milliseconds of the wall clock
}

const slice = 12; // milliseconds

function othersTurn(): Promise<void> {
    return new Promise((done) => setTimeout(done));
}

// Takes texts apart into lines. What is too long for a line is not kept.
export class Lines {
    private rest = '';
    private tooLong = false;

    constructor(private readonly take: (line: string | undefined, complete: boolean) => void) {}

    // Line by line, so that the caller can do something else in between.
    *add(text: string): Generator<void> {
        let begin = 0;
        for (let end = text.indexOf('\n'); end >= 0; end = text.indexOf('\n', begin)) {
            const line = this.rest + text.slice(begin, end);
            this.take(this.tooLong ? undefined : line, true);
            this.rest = '';
            this.tooLong = false;
            begin = end + 1;
            yield;
        }
        this.rest += text.slice(begin);
        if (this.rest.length <= longestLine) return;
        this.rest = '';
        this.tooLong = true;
    }

    end(): void {
        if (this.tooLong || this.rest !== '') this.take(this.tooLong ? undefined : this.rest, false);
    }
}

// Reads it all; `progress` hears how many bytes it has read. Errors: NoRecording; what the stream fails with.
export async function readRecording(
    name: string,
    served: boolean,
    bytes: ReadableStream<Uint8Array>,
    { progress, signal, limits }: { progress?: (bytes: number) => void; signal?: AbortSignal; limits?: Limits } = {},
): Promise<Recording> {
    const history = new History(limits ?? recordingLimits);
    let states: RecordedStates | undefined;
    let waiting: Arrival[] = []; // for the history, which takes many at the price of one
    const reader = new RecordingReader((entry) => {
        states ??= new RecordedStates(reader.head.begun ?? 0, (line, what) => reader.report(line, what));
        waiting.push(...states.arrivals(entry));
    });
    const lines = new Lines((line, complete) => reader.next(line, complete));
    const source = bytes.getReader();
    const decoder = new TextDecoder();
    let read = 0;
    let begun = performance.now();
    const keep = (): void => {
        history.take(waiting);
        waiting = [];
        history.trim(0);
    };
    const rest = async (): Promise<void> => {
        keep();
        progress?.(read);
        await othersTurn();
        signal?.throwIfAborted();
        begun = performance.now();
    };
    try {
        for (;;) {
            const { done, value } = await source.read();
            for (const _ of lines.add(decoder.decode(value, { stream: !done }))) {
                void _;
                if (performance.now() - begun > slice) await rest();
            }
            if (done) break;
            read += value.length;
            if (performance.now() - begun > slice) await rest();
        }
        lines.end();
        reader.end();
    } catch (error) {
        void source.cancel().catch(() => undefined);
        throw error;
    }
    keep();
    const { head, problems, problemCount } = reader;
    return {
        name,
        served,
        head,
        history,
        end: Math.floor((head.begun ?? 0) + reader.until),
        hasConfigurations: states?.hasConfigurations ?? false,
        lines: reader.lines,
        problems: [...problems].sort((a, b) => a.line - b.line),
        problemCount,
    };
}

function pathOf(name: string): string {
    return `/recordings/${encodeURIComponent(name)}`;
}

export async function listRecordings(): Promise<{ recordings: Listed[]; more: boolean }> {
    const answer: Document = await request('GET', '/recordings');
    const recordings = list(answer, 'recordings').map((each) => ({
        name: text(each, 'name'),
        size: whole(each, 'size') ?? 0,
        modified: Date.parse(text(each, 'modified')),
    }));
    return { recordings, more: answer['more'] === true };
}

// What the gateway answers to a request for a recording: its bytes, and how many they are. Errors: NoRecording, with the reason.
export async function fetchRecording(
    name: string,
    signal: AbortSignal,
): Promise<{ bytes: ReadableStream<Uint8Array>; size: number | undefined }> {
    const response = await fetch(pathOf(name), { signal });
    if (!response.ok || !response.body) {
        const problem: unknown = await response.json().catch(() => ({}));
        throw new NoRecording(text(problem as Document, 'detail') || `the gateway answered with ${response.status}`);
    }
    const size = Number(response.headers.get('content-length'));
    return { bytes: response.body, size: size > 0 ? size : undefined };
}
