// The properties of what is selected: what it is, why it is not shown, its members, and what can be done with it.

import { breakable, type Document, isDocument, list, shown, text } from '../model/documents';
import { explain } from '../model/explain';
import { detailOf, markOf } from '../model/outline';
import { stateMarks, stateWords } from '../model/popup_state';
import type { Item } from '../model/scene';
import * as store from '../store';
import { PopupActions, RegionActions } from './editing';

function flattened(document: Document, path = ''): [string, unknown][] {
    return Object.entries(document).flatMap(([member, value]): [string, unknown][] => {
        const name = path === '' ? member : `${path}.${member}`;
        const simple = !isDocument(value) || Object.keys(value).every((key) => key === 'width' || key === 'height');
        return simple ? [[name, value]] : flattened(value, name);
    });
}

// What keeps it from being shown or touched, and what would change that.
function Why({ item }: { item: Item }) {
    // That nothing is known of a displayable's layers is no reason why it is not shown; what is lost or not recorded is said above.
    const findings = explain(store.scene.value, item).filter(
        ({ level, rule }) => level !== 'OK' && rule !== 'displayable.unknown',
    );
    const state = item.kind === 'popup' ? item.state : undefined;
    if (findings.length === 0 && state === undefined) return null;
    return (
        <div class={`why ${state ?? ''}`}>
            {state && (
                <p class="state">
                    {stateMarks[state]} {stateWords[state]}
                </p>
            )}
            {findings.map(({ rule, level, text, remedy, item: other }) => (
                <p key={rule} class={level}>
                    {text}{' '}
                    {other && (
                        <button class="link" onClick={() => (store.selected.value = other.address)}>
                            Show {other.label}
                        </button>
                    )}
                    <span class="note">{remedy}</span>
                </p>
            ))}
        </div>
    );
}

const kindNames: Record<Item['kind'], string> = {
    display: 'Display',
    layer: 'Layer',
    popup: 'Popup',
    region: 'Touch region',
    displayable: 'Displayable',
};

function sourceOf(item: Item): string {
    if (item.kind === 'region') return `As the input manager of ${item.display} reports it; not part of /hmx.`;
    if (item.kind === 'displayable' && isDocument(item.document['upstream']))
        return 'Layers and flags are those of the display manager; not part of /hmx.';
    return item.kind === 'layer' ? `Of the layer configuration of ${item.display}.` : '';
}

// Its members as people look for them.
function membersOf(item: Item): Document {
    if (item.kind === 'layer') return { ...item.document, popups: item.popups.length, regions: item.regions.length };
    if (item.kind !== 'displayable') return item.document;
    const { upstream, ...members } = item.document;
    if (!isDocument(upstream)) return members;
    // The display manager says some of it again; its layers are found by their names.
    const more = Object.entries(upstream).filter(([member]) => !(member in members));
    const layers = list(upstream, 'layers').map((layer) => text(layer, 'name') || `#${shown(layer['id'])}`);
    return { ...members, ...Object.fromEntries(more), ...('layers' in upstream && { layers: layers.join(', ') }) };
}

function Members({ item }: { item: Item }) {
    const members = membersOf(item);
    return (
        <table class="members">
            <tbody>
                {flattened(members).map(([name, value]) => (
                    <tr key={name}>
                        <th scope="row">{breakable(name)}</th>
                        <td>{shown(value)}</td>
                    </tr>
                ))}
            </tbody>
        </table>
    );
}

function copyLink(): void {
    const link = new URL(store.linkHere(), location.href).href;
    navigator.clipboard.writeText(link).then(
        () => store.tell('The link is on the clipboard.', false),
        () => store.tell(`The browser does not give access to the clipboard. The link: ${link}`, true),
    );
}

// In place of what would change it: why that is not there.
function NoChanges({ item }: { item: Item }) {
    const { version, changes } = store.about.value;
    if ((item.kind !== 'popup' && item.kind !== 'region') || version === '' || store.recording.value) return null;
    return (
        <p class="note">
            {changes ? (
                'It can be changed when the page shows what is now.'
            ) : (
                <>
                    This gateway only reads; <code>hmxgateway --allow-changes</code> lets the page change it.
                </>
            )}
        </p>
    );
}

export function Properties() {
    const address = store.selected.value;
    const item = store.selectedItem.value;
    if (address === undefined) {
        return (
            <section class="panel properties" aria-label="Properties">
                <h2>Properties</h2>
                <p class="note">Select something in the picture or in the tree.</p>
            </section>
        );
    }
    const changes = store.mayChange.value;
    const stale = item && store.scene.value.stale.has(item.kind);
    return (
        <section class={`panel properties${stale ? ' stale' : ''}`} aria-label="Properties">
            <h2>
                <span aria-hidden="true">{item ? markOf(item) : '?'}</span>{' '}
                {breakable(item?.label ?? decodeURIComponent(address.split('/').at(-1) ?? ''))}
            </h2>
            <p class="note">
                {item ? `${kindNames[item.kind]} · ${detailOf(item)}` : 'This is not there at the time that is shown.'}{' '}
                <button class="link" onClick={copyLink}>
                    Copy link
                </button>
            </p>
            {item && sourceOf(item) !== '' && <p class="note">{sourceOf(item)}</p>}
            {item && <Why item={item} />}
            {item?.kind === 'popup' && changes && <PopupActions popup={item} />}
            {item?.kind === 'region' && changes && <RegionActions key={item.address} region={item} />}
            {item && !changes && <NoChanges item={item} />}
            {item && <Members item={item} />}
        </section>
    );
}
