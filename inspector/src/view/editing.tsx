// Changes: popups requested and withdrawn, touch regions drawn, moved, resized and deleted.

import { effect, signal } from '@preact/signals';

import { addRegion, changePopup, editRegion, type RegionEdit } from '../io/requests';
import type { Rectangle } from '../model/documents';
import { hmis, switches } from '../model/regions';
import type { SceneDisplay, ScenePopup, SceneRegion } from '../model/scene';
import * as store from '../store';

export interface Draft {
    readonly display: string;
    readonly layer: string; // its address
    readonly bounds: Rectangle;
}

// Regions that are drawn here belong to a subcomponent of their own, so that they do not get mixed up with those of the HMI.
const ownSubComponent = 'inspector';

export const drawing = signal<Draft>({ display: '', layer: '', bounds: { x: 0, y: 0, width: 0, height: 0 } });
const hmi = signal(hmis[0] ?? '');
const subComponent = signal(ownSubComponent);
const exclusive = signal(false);

// The first layer that can be drawn on is chosen where none is, or where the chosen one has gone.
export function startDrawing(): void {
    const stop = effect(() => {
        const { displays } = store.scene.value;
        const draft = drawing.peek();
        const display = displays.find((each) => each.label === draft.display) ?? displays.find((each) => each.layers.length > 0);
        const layer = display?.layers.find((each) => each.address === draft.layer) ?? display?.layers[0];
        if (display && layer && layer.address !== draft.layer)
            drawing.value = { ...draft, display: display.label, layer: layer.address };
    });
    stop();
    store.apart.value = false;
    store.goTo(undefined);
    store.mode.value = 'draw';
}

export function requestPopup(popup: ScenePopup, requested: boolean): Promise<boolean> {
    const what = `${requested ? 'Request' : 'Withdraw'} ${popup.display}/${popup.label}`;
    return store.carryOut(what, () => changePopup(popup, { requested }));
}

export function changeRegion(region: SceneRegion, edit: RegionEdit | undefined): Promise<boolean> {
    const what = `${edit ? 'Change' : 'Delete'} region ${region.label}`;
    const names = [...new Set(['', subComponent.value, ownSubComponent])];
    return store.carryOut(what, () => editRegion(region, names, edit));
}

async function create(display: SceneDisplay, layer: string, bounds: Rectangle): Promise<void> {
    const owner = { display: display.label, hmi: hmi.value, subComponent: subComponent.value };
    const what = `Add a region of ${hmi.value} to ${display.label}/${layer}`;
    if (await store.carryOut(what, () => addRegion(owner, layer, bounds, exclusive.value))) {
        drawing.value = { ...drawing.peek(), bounds: { x: 0, y: 0, width: 0, height: 0 } };
    }
}

interface NumberProps {
    readonly label: string;
    readonly value: number;
    readonly least?: number;
    readonly change: (value: number) => void;
}

export function NumberField({ label, value, least, change }: NumberProps) {
    return (
        <label class="field">
            {label}
            <input
                type="number"
                value={value}
                min={least}
                step={1}
                onChange={(event) => change(Math.round(event.currentTarget.valueAsNumber || 0))}
            />
        </label>
    );
}

export function BoundsFields({ bounds, change }: { bounds: Rectangle; change: (bounds: Rectangle) => void }) {
    return (
        <div class="fields">
            <NumberField label="x" value={bounds.x} change={(x) => change({ ...bounds, x })} />
            <NumberField label="y" value={bounds.y} change={(y) => change({ ...bounds, y })} />
            <NumberField label="width" value={bounds.width} least={0} change={(width) => change({ ...bounds, width })} />
            <NumberField label="height" value={bounds.height} least={0} change={(height) => change({ ...bounds, height })} />
        </div>
    );
}

function SubComponentField() {
    return (
        <label class="field wide">
            subcomponent
            <input
                type="text"
                value={subComponent.value}
                placeholder="none"
                onInput={(event) => (subComponent.value = event.currentTarget.value)}
            />
        </label>
    );
}

export function DrawPanel() {
    const draft = drawing.value;
    const { displays } = store.scene.value;
    const display = displays.find((each) => each.label === draft.display);
    const layer = display?.layers.find((each) => each.address === draft.layer);
    const choose = (address: string): void => {
        const owner = displays.find((each) => each.layers.some((one) => one.address === address));
        if (owner) drawing.value = { ...draft, display: owner.label, layer: address };
    };
    const ready = draft.bounds.width > 0 && draft.bounds.height > 0;
    return (
        <section class="panel" aria-label="Draw a touch region">
            <h2>Draw a touch region</h2>
            <p class="note">Drag a rectangle in the picture, or type its bounds.</p>
            <label class="field wide">
                layer
                <select value={draft.layer} onChange={(event) => choose(event.currentTarget.value)}>
                    {displays.map((each) => (
                        <optgroup key={each.label} label={each.label}>
                            {each.layers.map((one) => (
                                <option key={one.address} value={one.address}>
                                    {one.label}
                                </option>
                            ))}
                        </optgroup>
                    ))}
                </select>
            </label>
            <label class="field wide">
                HMI
                <select value={hmi.value} onChange={(event) => (hmi.value = event.currentTarget.value)}>
                    {hmis.map((name) => (
                        <option key={name} value={name}>
                            {name}
                        </option>
                    ))}
                </select>
            </label>
            <SubComponentField />
            <BoundsFields bounds={draft.bounds} change={(bounds) => (drawing.value = { ...draft, bounds })} />
            <label class="tick">
                <input
                    type="checkbox"
                    checked={exclusive.value}
                    onChange={(event) => (exclusive.value = event.currentTarget.checked)}
                />{' '}
                exclusive
            </label>
            <div class="actions">
                <button
                    class="primary"
                    disabled={!ready || !display || !layer || store.busy.value > 0}
                    onClick={() => display && layer && void create(display, layer.label, draft.bounds)}
                >
                    Add region
                </button>
                <button onClick={() => (store.mode.value = 'look')}>Done</button>
            </div>
        </section>
    );
}

export function PopupActions({ popup }: { popup: ScenePopup }) {
    const wanted = popup.document['requested'] === true;
    return (
        <div class="actions">
            <button class="primary" disabled={wanted || store.busy.value > 0} onClick={() => void requestPopup(popup, true)}>
                Request
            </button>
            <button disabled={!wanted || store.busy.value > 0} onClick={() => void requestPopup(popup, false)}>
                Withdraw
            </button>
        </div>
    );
}

export function RegionActions({ region }: { region: SceneRegion }) {
    const { bounds } = region;
    return (
        <div>
            {bounds && <BoundsFields bounds={bounds} change={(changed) => void changeRegion(region, { bounds: changed })} />}
            {!region.haptic && (
                <div class="ticks">
                    {switches.map((member) => (
                        <label key={member} class="tick">
                            <input
                                type="checkbox"
                                checked={region.document[member] === true}
                                onChange={(event) =>
                                    void changeRegion(region, { switches: { [member]: event.currentTarget.checked } })
                                }
                            />{' '}
                            {member}
                        </label>
                    ))}
                </div>
            )}
            <SubComponentField />
            <div class="actions">
                <button disabled={store.busy.value > 0} onClick={() => void changeRegion(region, undefined)}>
                    Delete region
                </button>
            </div>
        </div>
    );
}
