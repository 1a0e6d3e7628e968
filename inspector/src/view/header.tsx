// The bar at the top: whether what is shown is true, and how it is shown.

import { age, clock } from '../model/describe';
import * as store from '../store';
import { startDrawing } from './editing';

function Connection() {
    const lost = store.losses.value.length > 0;
    const seen = !store.isLive.value ? 'paused' : store.scene.value.read ? 'live' : 'connecting';
    const words = store.recording.value ? 'recording' : lost ? 'lost' : seen;
    const marks: Record<string, string> = { recording: '■', lost: '▲', paused: '‖', live: '●' };
    return (
        <span class={`pill ${words}`} role="status">
            <span aria-hidden="true">{marks[words] ?? '○'}</span> {words}
        </span>
    );
}

function setMode(mode: 'look' | 'hit' | 'draw'): void {
    if (store.mode.peek() === mode) store.mode.value = 'look';
    else if (mode === 'hit') store.startHitTest();
    else if (mode === 'draw') startDrawing();
    else store.mode.value = mode;
}

interface ToggleProps {
    readonly on: boolean;
    readonly name: string;
    readonly shortcut: string;
    readonly press: () => void;
}

function Toggle({ on, name, shortcut, press }: ToggleProps) {
    return (
        <button aria-pressed={on} class={on ? 'on' : ''} title={`${name} (${shortcut})`} onClick={press}>
            {name}
        </button>
    );
}

export function Header() {
    const { displays } = store.scene.value;
    const { version, changes } = store.about.value;
    return (
        <header>
            <h1>hmx inspector</h1>
            <Connection />
            <span class="space" />
            <label>
                <span class="unseen">Displays</span>
                <select
                    value={store.onlyDisplay.value ?? ''}
                    onChange={(event) =>
                        (store.onlyDisplay.value = event.currentTarget.value === '' ? undefined : event.currentTarget.value)
                    }
                >
                    <option value="">All displays</option>
                    {displays.map((display) => (
                        <option key={display.label} value={display.label}>
                            {display.label}
                        </option>
                    ))}
                </select>
            </label>
            <Toggle on={store.apart.value} name="Pull apart" shortcut="a" press={() => store.pullApart(!store.apart.value)} />
            <Toggle on={store.mode.value === 'hit'} name="Hit test" shortcut="h" press={() => setMode('hit')} />
            {changes && !store.recording.value && (
                <Toggle on={store.mode.value === 'draw'} name="Draw region" shortcut="d" press={() => setMode('draw')} />
            )}
            <button title="Open a recording (o)" onClick={() => (store.chooser.value = true)}>
                Recordings
            </button>
            <label>
                <span class="unseen">Colours</span>
                <select
                    title="Colours"
                    value={store.theme.value}
                    onChange={(event) => (store.theme.value = event.currentTarget.value as store.Theme)}
                >
                    <option value="system">Auto</option>
                    <option value="light">Light</option>
                    <option value="dark">Dark</option>
                </select>
            </label>
            <button
                aria-label="Help"
                title={`Help (?)${version && ` · version ${version}`}`}
                onClick={() => (store.help.value = true)}
            >
                ?
            </button>
        </header>
    );
}

// What is lost, since when, and why. What is shown is then the last that was known.
export function Losses() {
    const losses = store.losses.value;
    const now = store.recording.value ? store.shownTime.value : store.now.value;
    return (
        <div class="losses" role="alert">
            {losses.map(({ what, service, reason, since }) => (
                <p key={service + reason}>
                    <strong>▲ Lost: {what.join(', ')}</strong> since {clock(since, store.fromUtc.value, false)},{' '}
                    {age(now - since)} ago: {reason}. Shown as last known.
                </p>
            ))}
        </div>
    );
}

// In place of a picture that has nothing to show yet.
export function Nothing() {
    const { displays, read } = store.scene.value;
    const loss = store.losses.value[0];
    if (displays.length > 0) return null;
    const words = store.recording.value
        ? 'The recording says nothing of displays until this time.'
        : read
          ? 'The display manager has no displays.'
          : loss
            ? `Waiting for ${loss.service}: ${loss.reason}. The displays appear here as soon as it is there.`
            : 'Waiting for the first answer…';
    return <p class="empty">{words}</p>;
}

export function Notices() {
    return (
        <div class="notices" role="log" aria-live="polite">
            {store.notices.value.map(({ number, words, failed }) => (
                <p key={number} class={failed ? 'failed' : 'done'}>
                    <span>
                        {failed ? '✕' : '✓'} {words}
                    </span>
                    <button aria-label="Dismiss" onClick={() => store.dismiss(number)}>
                        ×
                    </button>
                </p>
            ))}
        </div>
    );
}
