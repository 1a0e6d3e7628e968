// Opening a recording: a file that was chosen or dropped, or one that the gateway serves.

import { signal } from '@preact/signals';

import { fetchRecording, readRecording } from './io/recordings';
import { tell } from './notices';
import { goToTime, recording, show } from './time';

export const chooser = signal(false); // whether the dialog is open
export const opening = signal<{ name: string; read: number; size: number | undefined } | undefined>(undefined);
let stop = new AbortController();
let wanted: { name: string; at: number | undefined } | undefined; // a link has asked for this file

export function cancelOpening(): void {
    stop.abort();
    opening.value = undefined;
}

export function closeRecording(): void {
    cancelOpening();
    if (recording.peek()) show(undefined);
}

type Found = Awaited<ReturnType<typeof fetchRecording>>;

async function open(
    name: string,
    served: boolean,
    at: number | undefined,
    find: (signal: AbortSignal) => Promise<Found>,
): Promise<void> {
    cancelOpening();
    const mine = new AbortController();
    stop = mine;
    opening.value = { name, read: 0, size: undefined };
    try {
        const { bytes, size } = await find(mine.signal);
        const progress = (read: number): void => void (opening.value = { name, read, size });
        const opened = await readRecording(name, served, bytes, { progress, signal: mine.signal });
        if (mine.signal.aborted) return;
        chooser.value = false;
        show(opened);
        if (at !== undefined) goToTime(at);
    } catch (error) {
        if (!mine.signal.aborted)
            tell(`${name} cannot be opened: ${error instanceof Error ? error.message : String(error)}`, true);
    } finally {
        if (stop === mine) opening.value = undefined;
    }
}

export function openFile(file: File): Promise<void> {
    const at = wanted?.name === file.name ? wanted.at : undefined;
    wanted = undefined;
    return open(file.name, false, at, () => Promise.resolve({ bytes: file.stream(), size: file.size }));
}

export function openServed(name: string, at?: number): Promise<void> {
    return open(name, true, at, (signal) => fetchRecording(name, signal));
}

// Makes the page show the recording that a link names, if it does not yet; true if the time is looked after, too.
export function openLinked(served: string | undefined, file: string | undefined, at: number | undefined): boolean {
    const shown = recording.peek();
    if (served !== undefined) {
        if (shown?.served && shown.name === served) return false;
        void openServed(served, at);
        return true;
    }
    if (file === undefined) {
        closeRecording();
        return false;
    }
    if (shown && !shown.served && shown.name === file) return false;
    closeRecording();
    wanted = { name: file, at };
    tell(`This link is about the recording ${file}, which is not here. Open the file, and the page goes to that time.`, true);
    return true;
}
