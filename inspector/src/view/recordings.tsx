// Recordings: choosing one, what is said of the one that is shown, and the time line of the page as a file.

import { signal } from '@preact/signals';
import { useEffect, useRef } from 'preact/hooks';

import { type Listed, listRecordings, type Recording } from '../io/recordings';
import { clock } from '../model/describe';
import { recordingOf } from '../model/recording_writer';
import { watches } from '../model/scene';
import * as store from '../store';

const dropping = signal(false); // a file is held over the page

// "12.3 MB"
function sizeText(bytes: number): string {
    if (bytes < 1000) return `${bytes} B`;
    const power = Math.min(Math.floor(Math.log10(bytes) / 3), 3);
    return `${(bytes / 1000 ** power).toPrecision(3)} ${['kB', 'MB', 'GB'][power - 1] ?? 'B'}`;
}

function dayAndTime(time: number, fromUtc: number): string {
    return new Date(time + fromUtc).toISOString().slice(0, 19).replace('T', ' ');
}

const listed = signal<{ recordings: Listed[]; more: boolean } | undefined>(undefined);
const listFailure = signal('');

function readList(): void {
    listed.value = undefined;
    listFailure.value = '';
    listRecordings().then(
        (found) => (listed.value = found),
        (error: unknown) => (listFailure.value = error instanceof Error ? error.message : String(error)),
    );
}

function Served() {
    const list = listed.value;
    if (listFailure.value !== '') return <p class="note">The gateway does not tell its recordings: {listFailure.value}</p>;
    if (!list) return <p class="note">Asking the gateway…</p>;
    if (list.recordings.length === 0) return <p class="note">The gateway's directory has no recordings.</p>;
    return (
        <>
            <div class="served">
                <table>
                    <tbody>
                        {list.recordings.map(({ name, size, modified }) => (
                            <tr key={name}>
                                <th scope="row">
                                    <button class="link" onClick={() => void store.openServed(name)}>
                                        {name}
                                    </button>
                                </th>
                                <td class="number">{sizeText(size)}</td>
                                <td class="number">{dayAndTime(modified, store.fromUtc.value)}</td>
                            </tr>
                        ))}
                    </tbody>
                </table>
            </div>
            {list.more && <p class="note">There are more; these are the newest.</p>}
        </>
    );
}

function Progress() {
    const reading = store.opening.value;
    if (!reading) return null;
    const { name, read, size } = reading;
    return (
        <p class="reading" role="status">
            Reading {name} … {sizeText(read)}
            {size !== undefined && ` of ${sizeText(size)}`}
            <progress max={size ?? 1} value={size === undefined ? undefined : read} />
            <button onClick={store.cancelOpening}>Cancel</button>
        </p>
    );
}

// The dialog in which a recording is chosen.
export function Chooser() {
    const dialog = useRef<HTMLDialogElement>(null);
    const input = useRef<HTMLInputElement>(null);
    const open = store.chooser.value;
    const offered = store.about.value.recordings;
    useEffect(() => {
        if (open) dialog.current?.showModal();
        else dialog.current?.close();
    }, [open]);
    useEffect(() => {
        if (open && offered) readList();
    }, [open, offered]);
    return (
        <dialog ref={dialog} aria-label="Open a recording" onClose={() => (store.chooser.value = false)}>
            <h2>Open a recording</h2>
            <p>
                Drop a file that <code>hmxctl record</code> has written on the page, or choose one. It is read in the browser and
                sent nowhere.
            </p>
            <input
                ref={input}
                type="file"
                aria-label="Recording"
                onChange={(event) => {
                    const file = event.currentTarget.files?.[0];
                    if (file) void store.openFile(file);
                    event.currentTarget.value = '';
                }}
            />
            {offered ? (
                <>
                    <h2>On the gateway</h2>
                    <Served />
                </>
            ) : (
                <p class="note">
                    <code>hmxgateway --recordings DIRECTORY</code> offers those of a directory here.
                </p>
            )}
            <Progress />
            <div class="actions">
                <button onClick={() => (store.chooser.value = false)}>Close</button>
            </div>
        </dialog>
    );
}

// What the page shows of a running system and not of this recording, and why.
function Missing({ recording: { history, hasConfigurations } }: { recording: Recording }) {
    const surfaces = [...history.head]
        .filter(([watch]) => watch.startsWith('/input/'))
        .flatMap(([, { elements }]) => [...elements]);
    const hasRegions = surfaces.length > 0;
    const words = [
        !hasRegions && 'touch regions',
        !surfaces.some(([, surface]) => 'inactiveLayers' in surface) && 'which layers are switched off',
        !history.head.has(watches.placements) && 'layers of displayables',
    ].filter((each) => each !== false);
    if (words.length === 0) return null;
    return (
        <>
            {' '}
            Not recorded, because only the managers know it: {words.join(', ')}. <code>hmxctl record --upstream</code> asks them.
            {!hasRegions &&
                hasConfigurations &&
                ' It has region configurations: what clients have asked for, not what is on a touch surface.'}
        </>
    );
}

// What is said of the recording that is shown.
export function RecordingBar() {
    const shown = store.recording.value;
    if (!shown)
        return store.opening.value && !store.chooser.value ? (
            <div class="recorded">
                <Progress />
            </div>
        ) : null;
    const { name, served, head, history, problems, problemCount } = shown;
    const { from, to } = store.extent.value;
    const day = (time: number): string => dayAndTime(time, head.fromUtc).slice(0, 10);
    const [begin, end] = [from, to].map((time) => clock(time, head.fromUtc));
    const dated = head.begun !== undefined;
    return (
        <div class="recorded" role="status">
            <p>
                <strong>■ Recording {name}</strong>, from {dated && `${day(from)} `}
                {begin} to {dated && day(from) !== day(to) && `${day(to)} `}
                {end}
                {!dated ? ' after its beginning: when it was made is not known' : head.zone && ` (${head.zone})`}.
                <Missing recording={shown} />
                {history.isCut && ' It is larger than the page can hold: only its last part is shown.'}
            </p>
            {problemCount > 0 && (
                <details>
                    <summary>
                        {problemCount === 1 ? '1 line is' : `${problemCount} lines are`} not as{' '}
                        {problemCount === 1 ? 'it' : 'they'} should be
                    </summary>
                    <ul>
                        {problems.slice(0, 100).map(({ line, what }) => (
                            <li key={`${line} ${what}`}>
                                line {line}: {what}
                            </li>
                        ))}
                        {problemCount > 100 && <li>and {problemCount - Math.min(problems.length, 100)} more</li>}
                    </ul>
                </details>
            )}
            <div class="actions">
                {served && (
                    <button
                        title="With what has been written meanwhile"
                        onClick={() =>
                            void store.openServed(name, store.position.peek() === undefined ? undefined : store.shownTime.peek())
                        }
                    >
                        Read again
                    </button>
                )}
                <button class="primary" onClick={store.closeRecording}>
                    Back to live
                </button>
            </div>
        </div>
    );
}

// What is held over the page, and dropped on it.
export function DropTarget() {
    useEffect(() => {
        const holdsFile = (event: DragEvent): boolean => event.dataTransfer?.types.includes('Files') ?? false;
        const over = (event: DragEvent): void => {
            if (!holdsFile(event)) return;
            event.preventDefault();
            dropping.value = true;
        };
        const leave = (event: DragEvent): void => {
            if (event.relatedTarget === null) dropping.value = false;
        };
        const drop = (event: DragEvent): void => {
            dropping.value = false;
            if (!holdsFile(event)) return;
            event.preventDefault();
            const file = event.dataTransfer?.files[0];
            if (file) void store.openFile(file);
        };
        const listeners = { dragover: over, dragleave: leave, drop };
        for (const [name, listener] of Object.entries(listeners)) document.addEventListener(name, listener as EventListener);
        return () => {
            for (const [name, listener] of Object.entries(listeners))
                document.removeEventListener(name, listener as EventListener);
        };
    }, []);
    return dropping.value ? <div class="dropping">Drop the recording to open it</div> : null;
}

// The time line of the page as a file.
export function download(): void {
    const { version } = store.about.peek();
    const head = {
        programs: { hmxgateway: version },
        zone: Intl.DateTimeFormat().resolvedOptions().timeZone,
        fromUtc: store.fromUtc.peek(),
        steady: (time: number) => time - performance.timeOrigin,
    };
    const lines = recordingOf(store.live, head, Date.now());
    if (lines.length === 0) {
        store.tell('There is nothing to download yet.', true);
        return;
    }
    const address = URL.createObjectURL(new Blob(lines.map((line) => `${line}\n`)));
    const link = document.createElement('a');
    link.href = address;
    link.download = `hmx_${dayAndTime(Date.now(), store.fromUtc.peek()).replace(' ', '_').replaceAll(':', '-')}.jsonl`;
    link.click();
    setTimeout(() => URL.revokeObjectURL(address), 60_000);
}
