// What is on the screens: displays, their layers from top to bottom, and the popups and touch regions on each.
//
// A scene is made from a state, display by display. A part of it is made anew only if what it is made from has changed, so that
// a popup which comes up does not cost the thousands of regions around it. Everything in a scene has an address, which is what
// picture, tree and properties select by, and what stands in a link:
//
//     /displays/Driver_Display             /layerconfigurations/Driver_Display/12     /displayables/1001
//     /popups/Driver_Display/Low_Fuel      /input/Driver_Display/r3 (an input region; h1: a haptic one; i0: one without number)

import { type Document, type Element, flag, isDocument, list, object, type Rectangle, text, whole } from './documents';
import { boundsOf, findLayer, zposOf } from './hit';
import { gateway, type Loss, type State, watched } from './state';
import { type PopupState, popupState } from './popup_state';
import { nameBasedUuid } from './uuid';

export interface SceneRegion {
    readonly kind: 'region';
    readonly address: string;
    readonly haptic: boolean;
    readonly display: string;
    readonly label: string; // "HMI_ID_ANDROID_DRIVER #3"
    readonly bounds: Rectangle | undefined;
    readonly document: Document; // in the input manager's keys
}

export interface ScenePopup {
    readonly kind: 'popup';
    readonly address: string;
    readonly display: string;
    readonly label: string;
    readonly state: PopupState;
    readonly document: Element;
}

export interface SceneLayer {
    readonly kind: 'layer';
    readonly address: string;
    readonly display: string;
    readonly label: string;
    readonly active: boolean;
    readonly document: Document;
    readonly popups: readonly ScenePopup[];
    readonly regions: readonly SceneRegion[]; // input regions topmost first, then haptic ones
}

export interface SceneDisplay {
    readonly kind: 'display';
    readonly address: string;
    readonly label: string;
    readonly width: number;
    readonly height: number;
    readonly sized: boolean; // the display manager has said how large it is
    readonly document: Element;
    readonly listed: readonly Document[]; // its layers as listed, with "active": false if switched off
    readonly input: readonly SceneRegion[]; // all its input regions, topmost first
    readonly layers: readonly SceneLayer[]; // topmost first
    readonly popups: readonly ScenePopup[]; // that are on none of its layers
    readonly regions: readonly SceneRegion[]; // likewise
}

export interface SceneDisplayable {
    readonly kind: 'displayable';
    readonly address: string;
    readonly label: string;
    readonly document: Element;
}

export type Item = SceneRegion | ScenePopup | SceneLayer | SceneDisplay | SceneDisplayable;

export interface Scene {
    readonly displays: readonly SceneDisplay[];
    readonly displayables: readonly SceneDisplayable[];
    readonly losses: readonly Lost[];
    readonly stale: ReadonlySet<Item['kind']>; // what kinds of things are shown in their last known state
    readonly read: boolean; // displays have been read at least once
}

export const watches = {
    displays: '/hmx/displays',
    displayables: '/hmx/displayables',
    layers: '/hmx/layerconfigurations',
    popups: '/hmx/popups',
    placements: '/output/displayables',
    input: (display: string): string => `/input/${encodeURIComponent(display)}`,
};

// A displayable in the display manager's own words, which say on which layers it is: named by its number, as text.
export function placementOf(record: unknown): Element | undefined {
    const number = isDocument(record) ? whole(record, 'id') : undefined;
    return isDocument(record) && number !== undefined ? { ...record, id: String(number) } : undefined;
}

export function addressOf(...parts: (string | number)[]): string {
    return parts.map((part) => `/${encodeURIComponent(part)}`).join('');
}

// A layer configuration does not name its display, but its id is made from the display's name.
const configurationIds = new Map<string, string>();
export function configurationId(display: string): string {
    const known = configurationIds.get(display);
    if (known !== undefined) return known;
    const made = nameBasedUuid(`hmx/layerconfigurations/${display}`);
    configurationIds.set(display, made);
    return made;
}

// The whole of `/input/<display>`: one element with the input manager's lists and the layers that are switched off.
interface Surface {
    readonly input: readonly Document[];
    readonly haptic: readonly Document[];
    readonly inactive: ReadonlySet<unknown>;
}

function surfaceOf(element: Element | undefined): Surface {
    const document: Document = element ?? {};
    const off = document['inactiveLayers'];
    return {
        input: list(document, 'regionInfoSorted'),
        haptic: list(document, 'hapticInfoSorted'),
        inactive: new Set(Array.isArray(off) ? off : []),
    };
}

export function regionLabel(document: Document): string {
    const name = text(document, 'hmiName');
    const number = whole(document, 'regionID') ?? whole(document, 'hapticRegion');
    if (number === undefined) return name || 'unnamed';
    return name ? `${name} #${number}` : `#${number}`;
}

function regionsOf(display: string, documents: readonly Document[], haptic: boolean): SceneRegion[] {
    const seen = new Map<string, number>();
    return documents.map((document, index) => {
        const number = whole(document, haptic ? 'hapticRegion' : 'regionID');
        const name = number === undefined ? `${haptic ? 'j' : 'i'}${index}` : `${haptic ? 'h' : 'r'}${number}`;
        const times = seen.get(name) ?? 0;
        seen.set(name, times + 1);
        const address = addressOf('input', display, times === 0 ? name : `${name}.${times}`);
        return { kind: 'region', address, haptic, display, label: regionLabel(document), bounds: boundsOf(document), document };
    });
}

// What an array made from the parts is remembered by: made anew only if one of them is another object than before.
class Remembered<Parts extends readonly unknown[], Made> {
    private readonly kept = new Map<string, { parts: Parts; made: Made }>();

    get(name: string, parts: Parts, make: () => Made): Made {
        const known = this.kept.get(name);
        if (known?.parts.length === parts.length && known.parts.every((part, i) => part === parts[i])) return known.made;
        const made = make();
        this.kept.set(name, { parts, made });
        return made;
    }
}

interface Regions {
    readonly input: readonly SceneRegion[];
    readonly listed: readonly Document[];
    readonly byLayer: readonly (readonly SceneRegion[])[]; // as listed; the last list has those on none
}

function place(listed: readonly Document[], names: readonly string[], places: Map<string, number>): number {
    for (const name of names) {
        const found = places.get(name) ?? findLayer(listed, name);
        places.set(name, found);
        if (found >= 0) return found;
    }
    return listed.length;
}

function makeRegions(display: string, configuration: Element | undefined, surface: Element | undefined): Regions {
    const { input, haptic, inactive } = surfaceOf(surface);
    const listed = list(configuration ?? {}, 'layers').map((layer) =>
        inactive.has(layer['id']) ? { ...layer, active: false } : layer,
    );
    const all = [regionsOf(display, input, false), regionsOf(display, haptic, true)];
    const byLayer: SceneRegion[][] = Array.from({ length: listed.length + 1 }, () => []);
    const places = new Map<string, number>();
    for (const region of all.flat()) byLayer[place(listed, [text(region.document, 'layer')], places)]?.push(region);
    return { input: all[0] ?? [], listed, byLayer };
}

// By a number, where there is one, then by name: elements arrive in no order that lasts.
function by(member: string, direction: 1 | -1 = 1): (a: { document: Document; label: string }, b: typeof a) => number {
    const rank = (document: Document): number => direction * (whole(document, member) ?? direction * Infinity);
    return (a, b) =>
        rank(a.document) === rank(b.document) ? (a.label < b.label ? -1 : 1) : rank(a.document) < rank(b.document) ? -1 : 1;
}

function makePopups(popups: ReadonlyMap<string, Element>): ReadonlyMap<string, readonly ScenePopup[]> {
    const byDisplay = new Map<string, ScenePopup[]>();
    for (const document of popups.values()) {
        const display = text(document, 'display');
        const label = text(document, 'name');
        const made: ScenePopup = {
            kind: 'popup',
            address: addressOf('popups', display, label),
            display,
            label,
            state: popupState(document),
            document,
        };
        const others = byDisplay.get(display);
        if (others) others.push(made);
        else byDisplay.set(display, [made]);
    }
    for (const each of byDisplay.values()) each.sort(by('priorityInlayer', -1));
    return byDisplay;
}

function makeDisplay(
    document: Element,
    label: string,
    { input, listed, byLayer }: Regions,
    popups: readonly ScenePopup[],
): SceneDisplay {
    const resolution = object(document, 'resolution');
    const width = whole(resolution, 'width') ?? 0;
    const height = whole(resolution, 'height') ?? 0;
    const sized = width > 0 && height > 0;
    const onLayer: ScenePopup[][] = Array.from({ length: listed.length + 1 }, () => []);
    const places = new Map<string, number>();
    for (const popup of popups)
        onLayer[
            place(listed, [text(popup.document, 'popupLayerCompositing'), text(popup.document, 'popupLayerLogical')], places)
        ]?.push(popup);
    const layers = listed.map((layer, i): SceneLayer => {
        const number = whole(layer, 'id');
        return {
            kind: 'layer',
            address: addressOf('layerconfigurations', label, number ?? text(layer, 'name')),
            display: label,
            label: text(layer, 'name') || `#${number ?? '?'}`,
            active: layer['active'] !== false,
            document: layer,
            popups: onLayer[i] ?? [],
            regions: byLayer[i] ?? [],
        };
    });
    layers.sort((a, b) => zposOf(b.document) - zposOf(a.document));
    return {
        kind: 'display',
        address: addressOf('displays', label),
        label,
        width: sized ? width : width || 1280,
        height: sized ? height : height || 480,
        sized,
        document,
        listed,
        input,
        layers,
        popups: onLayer[listed.length] ?? [],
        regions: byLayer[listed.length] ?? [],
    };
}

// Something that is lost: what of the page it is, since when and why.
export interface Lost extends Loss {
    readonly what: readonly string[]; // "popups", "touch regions of Driver_Display", "the gateway"
}

const everything: readonly Item['kind'][] = ['display', 'displayable', 'layer', 'region', 'popup'];
const watchedThings: Readonly<Record<string, { what: string; kinds: readonly Item['kind'][] }>> = {
    [gateway]: { what: 'the gateway', kinds: everything },
    [watches.displays]: { what: 'displays', kinds: ['display'] },
    [watches.displayables]: { what: 'displayables', kinds: ['displayable'] },
    [watches.layers]: { what: 'layers', kinds: ['layer'] },
    [watches.popups]: { what: 'popups', kinds: ['popup'] },
    [watches.placements]: { what: 'layers of displayables', kinds: ['displayable'] },
};

// What has one reason is one loss, since the first of it was lost.
export function lossesOf(state: State): { losses: Lost[]; stale: Set<Item['kind']> } {
    const losses = new Map<string, Lost>();
    const stale = new Set<Item['kind']>();
    for (const [watch, { loss }] of state) {
        if (!loss) continue;
        const surface = {
            what: `touch regions of ${decodeURIComponent(watch.split('/').at(-1) ?? '')}`,
            kinds: ['region'] as const,
        };
        const { what, kinds } = watchedThings[watch] ?? surface;
        const reason = loss.reason.replace(/^retrieve \/\S* at \S+: /, ''); // what differs from resource to resource, and is no reason
        const key = `${loss.service} ${reason}`;
        const known = losses.get(key);
        losses.set(
            key,
            known
                ? { ...known, what: [...known.what, what], since: Math.min(known.since, loss.since) }
                : { ...loss, reason, what: [what] },
        );
        for (const kind of kinds) stale.add(kind);
    }
    return { losses: [...losses.values()], stale };
}

// Makes scenes, each from as much of the one before as is still true.
export class SceneMaker {
    private readonly regions = new Remembered<readonly [unknown, unknown], Regions>();
    private readonly popups = new Remembered<readonly [unknown], ReadonlyMap<string, readonly ScenePopup[]>>();
    private readonly displayables = new Remembered<readonly [unknown, unknown], readonly SceneDisplayable[]>();
    private readonly displays = new Remembered<readonly unknown[], SceneDisplay>();

    make(state: State): Scene {
        const configurations = watched(state, watches.layers).elements;
        const popups = watched(state, watches.popups).elements;
        const byDisplay = this.popups.get('', [popups], () => makePopups(popups));
        const known = watched(state, watches.displays);
        const displays = [...known.elements.values()].map((document) => {
            const label = text(document, 'name');
            const configuration = configurations.get(configurationId(label));
            const surface = watched(state, watches.input(label)).elements.values().next().value;
            const regions = this.regions.get(label, [configuration, surface], () => makeRegions(label, configuration, surface));
            const own = byDisplay.get(label) ?? [];
            return this.displays.get(document.id, [document, regions, ...own.map((each) => each.document)], () =>
                makeDisplay(document, label, regions, own),
            );
        });
        displays.sort(by('displayID'));
        const things = watched(state, watches.displayables).elements;
        const placements = watched(state, watches.placements).elements;
        const displayables = this.displayables.get('', [things, placements], () =>
            [...things.values()]
                .map((document): SceneDisplayable => {
                    const number = whole(document, 'displayableID') ?? document.id;
                    const upstream = placements.get(String(number));
                    return {
                        kind: 'displayable',
                        address: addressOf('displayables', number),
                        label: text(document, 'name') || `#${number}`,
                        document: upstream ? { ...document, upstream } : document,
                    };
                })
                .sort(by('displayableID')),
        );
        return { displays, displayables, ...lossesOf(state), read: known.read };
    }
}

// The item at an address; nothing if the scene does not have it.
export function find(scene: Scene, address: string): Item | undefined {
    const [kind, name] = address.slice(1).split('/');
    if (kind === 'displayables') return scene.displayables.find((each) => each.address === address);
    const display = scene.displays.find((each) => encodeURIComponent(each.label) === name);
    if (!display || kind === 'displays') return display;
    for (const place of [...display.layers, display]) {
        if (place.address === address) return place;
        const children: readonly Item[] = kind === 'popups' ? place.popups : kind === 'input' ? place.regions : [];
        const found = children.find((each) => each.address === address);
        if (found) return found;
    }
    return undefined;
}

export function displayOf(scene: Scene, item: Item): SceneDisplay | undefined {
    if (item.kind === 'displayable') return undefined;
    return item.kind === 'display' ? item : scene.displays.find((each) => each.label === item.display);
}

export function layerOf(display: SceneDisplay, item: Item): SceneLayer | undefined {
    return display.layers.find(
        (layer) => layer === item || layer.popups.includes(item as ScenePopup) || layer.regions.includes(item as SceneRegion),
    );
}

export function flagsOf(document: Document): string[] {
    return ['exclusive', 'keepFocus', 'notifyOutside', 'dropEvent', 'translateInput'].filter((member) => flag(document, member));
}
