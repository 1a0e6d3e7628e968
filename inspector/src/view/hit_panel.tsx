// The hit test: the touch, and who receives it, who is covered, who is told.

import { breakable } from '../model/documents';
import { type Hit, notesOn, verdict } from '../model/hit';
import { boundsText } from '../model/outline';
import { layerOf, watches } from '../model/scene';
import { watched } from '../model/state';
import * as store from '../store';
import { NumberField } from './editing';

export function HitPanel() {
    const at = store.probe.value;
    const result = store.hits.value;
    const { displays } = store.scene.value;
    const display = displays.find((each) => each.label === at?.display);
    const place = (change: Partial<store.Probe>): void => {
        const name = displays[0]?.label;
        if (name === undefined) return;
        store.probe.value = { display: name, x: 0, y: 0, ...at, ...change };
        store.pinned.value = true;
    };
    const line = (hit: Hit, told: boolean) => {
        const region = display?.input[hit.region];
        if (!region || !result) return null;
        const sees = told || hit.fate === 'receives';
        const outcome = verdict(result, hit);
        const notes = notesOn(region.document, hit, told);
        return (
            <tr
                key={region.address}
                class={told ? 'told' : hit.fate}
                onPointerEnter={() => (store.hovered.value = region.address)}
                onPointerLeave={() => (store.hovered.value = undefined)}
            >
                <td>
                    <span aria-hidden="true">{told ? '◌' : { receives: '●', drops: '✕', keptOff: '⊘' }[hit.fate]}</span> {outcome}
                </td>
                <td>
                    <button class="link" onClick={() => (store.selected.value = region.address)}>
                        {breakable(region.label)}
                    </button>
                    <br />
                    <span class="note">
                        {layerOf(display, region)?.label} · {boundsText(region.bounds)}
                        {notes.length > 0 && ` · ${notes.join(', ')}`}
                    </span>
                </td>
                <td class="number">{sees ? `${hit.delivered.x},${hit.delivered.y}` : ''}</td>
            </tr>
        );
    };
    const known = display && watched(store.shownState.value, watches.input(display.label)).read;
    const outside = at && display && (at.x < 0 || at.y < 0 || at.x >= display.width || at.y >= display.height);
    return (
        <section class="panel hit" aria-label="Hit test">
            <h2>Hit test</h2>
            <p class="note">
                {store.pinned.value
                    ? 'The touch is held; click the picture to let it follow the pointer.'
                    : 'Move over the picture; click to hold the touch.'}
            </p>
            <label class="field wide">
                display
                <select value={at?.display} onChange={(event) => place({ display: event.currentTarget.value })}>
                    {displays.map((each) => (
                        <option key={each.label}>{each.label}</option>
                    ))}
                </select>
            </label>
            <div class="fields">
                <NumberField label="x" value={at?.x ?? 0} change={(x) => place({ x })} />
                <NumberField label="y" value={at?.y ?? 0} change={(y) => place({ y })} />
            </div>
            {outside && <p class="note">The point lies outside the display.</p>}
            {result && result.under.length + result.notified.length > 0 ? (
                <table class="hits">
                    <thead>
                        <tr>
                            <th scope="col">Outcome</th>
                            <th scope="col">Region</th>
                            <th scope="col">Sees</th>
                        </tr>
                    </thead>
                    <tbody>
                        {result.under.map((hit) => line(hit, false))}
                        {result.notified.map((hit) => line(hit, true))}
                    </tbody>
                </table>
            ) : (
                <p>
                    {known
                        ? 'No input region there.'
                        : `The touch surface of ${display?.label ?? 'the display'} ${store.recording.value ? 'was not recorded' : 'is not known'}.`}
                </p>
            )}
            {store.scene.value.stale.has('region') && <p class="note">The touch regions are those that were last known.</p>}
        </section>
    );
}
