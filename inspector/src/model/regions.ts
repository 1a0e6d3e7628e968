// Touch regions as clients of /hmx write them, made from and matched with those that the input manager reports.
//
// /hmx takes a region configuration as a whole: all regions that one HMI, or one subcomponent of it, has on a display. The input
// manager reports single regions and does not say whose configuration each is from. So a region is found again by its layer and
// its bounds.

import { type Document, flag, isDocument, list, object, type Rectangle, text, whole } from './documents';
import { boundsOf } from './hit';
import type { SceneRegion } from './scene';

export const hmis = ['HMI_ID_ANDROID_DRIVER', 'HMI_ID_ANDROID_DRIVER_POPUP'];
export const touchDisplays = ['Driver_Display', 'Co_Driver_Display'];
export const switches = ['exclusive', 'keepFocus', 'notifyOutside', 'translateInput'] as const;

function resourceBounds({ x, y, width, height }: Rectangle): Document {
    return { upperLeftPoint: { posX: x, posY: y }, width, height };
}

// A region in the keys of /hmx, with other bounds or switches if they are given. `dropEvent` cannot be written there.
export function asResource(region: SceneRegion, changed: Document = {}, bounds: Rectangle | undefined = region.bounds): Document {
    const { document, haptic } = region;
    const kept: Record<string, unknown> = {};
    if (bounds) kept['bounds'] = resourceBounds(bounds);
    for (const member of haptic ? ['hapticFeedback', 'hapticRegion'] : [...switches, 'translateX', 'translateY']) {
        if (document[member] !== undefined) kept[member] = document[member];
    }
    if (!haptic && isDocument(document['hitOutside'])) {
        const margin = object(document, 'hitOutside');
        kept['hitOutside'] = { posX: whole(margin, 'x') ?? 0, posY: whole(margin, 'y') ?? 0 };
    }
    return { ...kept, ...changed };
}

export function newRegion(bounds: Rectangle, exclusive: boolean): Document {
    return { bounds: resourceBounds(bounds), exclusive };
}

function sameBounds(region: Document, bounds: Rectangle | undefined): boolean {
    if (!isDocument(region['bounds'])) return bounds === undefined;
    const there = object(region, 'bounds');
    const corner = object(there, 'upperLeftPoint');
    const found = boundsOf({ bounds: { ...there, pointMin: { x: whole(corner, 'posX'), y: whole(corner, 'posY') } } });
    return (
        bounds !== undefined &&
        found !== undefined &&
        (['x', 'y', 'width', 'height'] as const).every((side) => found[side] === bounds[side])
    );
}

// The "regions" of a configuration with one region more.
export function withAdded(regions: Document, layer: string, added: Document): Document {
    const entries = list(regions, 'infoForAllLayers');
    const known = entries.find((entry) => text(entry, 'layer') === layer);
    const grown = { ...known, layer, inputRegions: [...list(known ?? {}, 'inputRegions'), added] };
    return { infoForAllLayers: known ? entries.map((entry) => (entry === known ? grown : entry)) : [...entries, grown] };
}

// The "regions" with this region replaced, or without it; nothing if it is not among them.
export function withReplaced(regions: Document, region: SceneRegion, replacement: Document | undefined): Document | undefined {
    const member = region.haptic ? 'hapticRegions' : 'inputRegions';
    const isIt = (each: Document): boolean =>
        sameBounds(each, region.bounds) && flag(each, 'exclusive') === flag(region.document, 'exclusive');
    const entries = [...list(regions, 'infoForAllLayers')];
    const layer = text(region.document, 'layer');
    const at = entries.findIndex((entry) => text(entry, 'layer') === layer && list(entry, member).some(isIt));
    const entry = entries[at];
    if (!entry) return undefined;
    const kept = [...list(entry, member)];
    kept.splice(kept.findIndex(isIt), 1, ...(replacement ? [replacement] : []));
    entries[at] = { ...entry, [member]: kept };
    return {
        infoForAllLayers: entries.filter((each) => list(each, 'inputRegions').length + list(each, 'hapticRegions').length > 0),
    };
}
