// The one open connection to the gateway, on which everything that is watched arrives.
//
// What is watched depends on what arrives: each display has a touch surface of its own. To watch something else, a second
// connection is opened, and the first one is closed once the second stands; meanwhile nothing is missed, and what arrives twice
// changes nothing. EventSource connects again by itself after a loss, unless the gateway answered with an error: then we do.
//
// A gateway that does not answer any more is lost, too, although the connection stands. When it answers again, another connection
// is opened: nobody knows what became of the first.
//
// Arrivals are collected and handed over once a frame. A page in the background has no frames; there a timer does.

import { type Document, isDocument, text } from '../model/documents';
import { type Arrival, gateway } from '../model/state';
import { Pulse } from './pulse';

const events = ['snapshot', 'changed', 'removed', 'lost', 'back'];
const retryAfter = 1000;
const patience = 5000;
const backgroundPace = 250;

export class Stream {
    private source: EventSource | undefined;
    private watching = '';
    private waiting: Arrival[] = [];
    private handOver: (() => void) | undefined;
    private readonly pulse = new Pulse(
        () => fetch('/healthz', { cache: 'no-store', signal: AbortSignal.timeout(patience) }),
        (answers) => this.heardOf(answers),
    );

    constructor(private readonly taker: (arrivals: readonly Arrival[]) => void) {
        // What a hidden page has asked a frame for would wait until it is seen again.
        document.addEventListener('visibilitychange', () => this.handOver?.());
    }

    watch(paths: readonly string[]): void {
        const query = paths.map((path) => `watch=${encodeURIComponent(path)}`).join('&');
        if (query === this.watching) return;
        this.watching = query;
        this.open();
    }

    private heardOf(answers: boolean): void {
        if (this.source?.readyState !== EventSource.OPEN) return;
        if (answers) this.open();
        else this.lose('it does not answer');
    }

    private lose(reason: string): void {
        const data = { service: 'the gateway', reason };
        this.arrived({ watch: gateway, event: 'lost', data, time: Date.now(), size: 0 });
    }

    private open(): void {
        const before = this.source;
        const source = new EventSource(`${gateway}?${this.watching}`);
        this.source = source;
        source.onopen = (): void => {
            before?.close();
            this.arrived({ watch: gateway, event: 'back', data: {}, time: Date.now(), size: 0 });
        };
        source.onerror = (): void => {
            before?.close();
            if (this.source !== source) return;
            this.lose('no connection');
            if (source.readyState === EventSource.CLOSED) {
                setTimeout(() => {
                    if (this.source === source) this.open();
                }, retryAfter);
            }
        };
        for (const event of events) {
            source.addEventListener(event, (message: MessageEvent<string>) => {
                if (this.source !== source && source.readyState === EventSource.CLOSED) return;
                this.pulse.beat();
                const wrapped = parsed(message.data);
                const data = wrapped['data'];
                if (!isDocument(data)) return;
                this.arrived({ watch: text(wrapped, 'watch'), event, data, time: Date.now(), size: message.data.length });
            });
        }
    }

    private arrived(arrival: Arrival): void {
        this.waiting.push(arrival);
        if (this.handOver) return;
        const handOver = (): void => {
            if (this.handOver !== handOver) return;
            this.handOver = undefined;
            const arrivals = this.waiting;
            this.waiting = [];
            this.taker(arrivals);
        };
        this.handOver = handOver;
        if (document.visibilityState === 'visible') requestAnimationFrame(handOver);
        else setTimeout(handOver, backgroundPace);
    }
}

function parsed(json: string): Document {
    try {
        const value: unknown = JSON.parse(json);
        return isDocument(value) ? value : {};
    } catch {
        return {};
    }
}
