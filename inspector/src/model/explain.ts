// Why something is, or is not, shown or touched: the rules of `hmxctl explain`.
//
// The words stand in client/rules/explain.json, which hmxctl has too. The conditions are written here and in client/src/explain.cpp,
// where it is explained how the share of a region that touches reach is found; tests/data/explain_cases.json holds both to them.

import table from '../../../client/rules/explain.json';
import { type Document, flag, isDocument, list, object, type Rectangle, text, whole } from './documents';
import { boundsOf, findLayer, hitTest, zposOf } from './hit';
import { displayOf, type Item, layerOf, type Scene, type SceneDisplay, type SceneDisplayable, type ScenePopup } from './scene';
import { type SceneLayer, type SceneRegion } from './scene';

export type Level = 'OK' | 'WARNING' | 'PROBLEM';

export interface Finding {
    readonly rule: string;
    readonly level: Level;
    readonly text: string;
    readonly remedy: string;
    readonly item?: Item; // the one that is in the way
}

type Values = Readonly<Record<string, string | number | readonly string[]>>;

const levels: readonly string[] = ['PROBLEM', 'WARNING', 'OK'];
const ranks = new Map(table.rules.map((rule, rank) => [rule.id, levels.indexOf(rule.level) * table.rules.length + rank]));

function filledIn(words: string, values: Values): string {
    return words.replaceAll(/\{(\w+)\}/g, (_, key: string) => {
        const value = values[key] ?? '';
        return Array.isArray(value) ? value.join(', ') : String(value);
    });
}

class Findings {
    private readonly all: Finding[] = [];

    add(rule: string, values: Values = {}, item?: Item): void {
        const row = table.rules.find((each) => each.id === rule);
        if (!row) throw new Error(`no rule ${rule}`);
        const words = { text: filledIn(row.text, values), remedy: filledIn(row.remedy ?? '', values) };
        this.all.push({ rule, level: row.level as Level, ...words, ...(item && { item }) });
    }

    // The most decisive ones first.
    sorted(): Finding[] {
        return this.all.sort((a, b) => (ranks.get(a.rule) ?? 0) - (ranks.get(b.rule) ?? 0));
    }
}

function sizeText(size: Document): string {
    return `${whole(size, 'width') ?? '?'}x${whole(size, 'height') ?? '?'}`;
}

function isKnown(size: Document): boolean {
    return whole(size, 'width') !== undefined && whole(size, 'height') !== undefined;
}

function isEmpty(size: Document): boolean {
    return (whole(size, 'width') ?? 1) <= 0 || (whole(size, 'height') ?? 1) <= 0;
}

function covers(size: Document, other: Document): boolean {
    if (!isKnown(size) || !isKnown(other)) return false;
    return (['width', 'height'] as const).every((side) => (whole(size, side) ?? 0) >= (whole(other, side) ?? 0));
}

function addAttachment(findings: Findings, display: SceneDisplay): void {
    const connector = text(display.document, 'connector');
    findings.add(connector === '' ? 'display.unattached' : 'display.attached', { display: display.label, connector });
}

// Popups.

function popupName(popup: ScenePopup): string {
    const priority = whole(popup.document, 'priorityInlayer');
    return popup.label + (priority === undefined ? '' : ` (priority ${priority})`);
}

function slotName(popup: ScenePopup): string {
    const slot = text(popup.document, 'slot');
    return slot === '' ? 'the slot of popups without one' : `the slot "${slot}"`;
}

// The others of its slot for which the member is true, the most important one first.
function rivals(display: SceneDisplay, popup: ScenePopup, member: string): ScenePopup[] {
    const rank = (each: ScenePopup): number => -(whole(each.document, 'priorityInlayer') ?? -Infinity);
    return [...display.layers, display]
        .flatMap((place) => place.popups)
        .filter(
            (each) =>
                each !== popup && text(each.document, 'slot') === text(popup.document, 'slot') && flag(each.document, member),
        )
        .sort((a, b) => (rank(a) === rank(b) ? (a.label < b.label ? -1 : 1) : rank(a) - rank(b)));
}

function addState(findings: Findings, display: SceneDisplay, popup: ScenePopup): void {
    const slot = slotName(popup);
    const [holder] = rivals(display, popup, 'active');
    const values = { slot, rival: holder ? popupName(holder) : '' };
    switch (popup.state) {
        case 'shown':
            findings.add('popup.shown');
            break;
        case 'active':
            findings.add('popup.hidden', values);
            break;
        case 'suppressed':
            findings.add(holder ? 'popup.suppressed' : 'popup.suppressed-alone', values, holder);
            return;
        case 'wanting':
            findings.add(holder ? 'popup.outrun' : 'popup.undecided', values, holder);
            return;
        case 'idle':
            findings.add('popup.idle');
            return;
    }
    const others = rivals(display, popup, 'requested').map(popupName);
    findings.add(others.length === 0 ? 'popup.alone' : 'popup.first', { slot, others });
}

function explainPopup(findings: Findings, display: SceneDisplay, popup: ScenePopup): void {
    addState(findings, display, popup);
    const members = ['popupLayerCompositing', 'popupLayerLogical'];
    const names = [...new Set(members.map((member) => text(popup.document, member)))].filter((name) => name !== '');
    const layer = layerOf(display, popup);
    if (layer) {
        const values = { display: display.label, layer: layer.label, zpos: whole(layer.document, 'zpos') ?? 'unknown' };
        findings.add(layer.active ? 'popup.layer' : 'popup.layer-off', values);
    } else if (names.length > 0) {
        findings.add('popup.layer-absent', { display: display.label, layers: names.join(' or ') });
    } else if (popup.state !== 'shown') {
        findings.add('popup.no-layer');
    }
    addAttachment(findings, display);
}

// Displays and layers.

function explainDisplay(findings: Findings, display: SceneDisplay): void {
    const labels = (active: boolean): string[] =>
        display.layers.filter((each) => each.active === active).map((each) => each.label);
    const on = labels(true);
    const off = labels(false);
    if (on.length === 0) {
        findings.add(off.length === 0 ? 'display.no-layers' : 'display.all-off');
    } else {
        findings.add('display.layers', { layers: on });
        if (off.length > 0) findings.add('display.layers-off', { layers: off });
    }
    const resolution = object(display.document, 'resolution');
    if (isKnown(resolution)) {
        findings.add(isEmpty(resolution) ? 'display.empty' : 'display.size', { resolution: sizeText(resolution) });
    } else {
        findings.add('display.no-size');
    }
    addAttachment(findings, display);
    if (display.document['touchSupport'] === false && display.input.length > 0)
        findings.add('display.no-touch', { regions: display.input.length });
    const popups = [...display.layers, display].flatMap((place) => place.popups).filter((popup) => popup.state === 'shown');
    if (popups.length > 0) findings.add('display.popups', { popups: popups.map((popup) => popup.label).sort() });
}

function explainLayer(findings: Findings, display: SceneDisplay, layer: SceneLayer): void {
    if (!layer.active) findings.add('layer.off');
    const zpos = whole(layer.document, 'zpos');
    if (zpos === undefined) {
        findings.add('layer.no-place');
        return;
    }
    const others = display.layers.filter((each) => each !== layer);
    const labels = (fits: (zpos: number) => boolean): string[] =>
        others.filter((each) => fits(zposOf(each.document))).map((each) => each.label);
    const beside = labels((other) => other === zpos);
    const above = labels((other) => other > zpos);
    if (beside.length > 0) findings.add('layer.same-place', { zpos, others: beside });
    findings.add(above.length === 0 ? 'layer.top' : 'layer.below', { zpos, above });
}

// Regions.

interface Area {
    readonly left: number;
    readonly top: number;
    readonly right: number;
    readonly bottom: number;
}

function areaOf({ x, y, width, height }: Rectangle, margin = { x: 0, y: 0 }): Area {
    return { left: x - margin.x, top: y - margin.y, right: x + width + margin.x, bottom: y + height + margin.y };
}

function common(a: Area, b: Area): Area {
    const { max, min } = Math;
    return {
        left: max(a.left, b.left),
        top: max(a.top, b.top),
        right: min(a.right, b.right),
        bottom: min(a.bottom, b.bottom),
    };
}

function pixels({ left, top, right, bottom }: Area): number {
    return Math.max(right - left, 0) * Math.max(bottom - top, 0);
}

const mostDivisions = 120;

function divisions(edges: ReadonlySet<number>, first: number, last: number): number[] {
    const all = [...new Set([...edges, first, last])].filter((at) => at >= first && at <= last).sort((a, b) => a - b);
    if (all.length <= mostDivisions) return all;
    return Array.from({ length: mostDivisions }, (_, i) => all[Math.floor((i * (all.length - 1)) / (mostDivisions - 1))] ?? last);
}

function addCover(findings: Findings, display: SceneDisplay, region: SceneRegion, visible: Area): void {
    const columns = new Set<number>();
    const rows = new Set<number>();
    const near = display.input.filter((each) => {
        if (!each.bounds) return false;
        const margin = object(each.document, 'hitOutside');
        const reach = areaOf(each.bounds, {
            x: Math.max(0, whole(margin, 'x') ?? 0),
            y: Math.max(0, whole(margin, 'y') ?? 0),
        });
        if (pixels(common(reach, visible)) === 0) return false;
        const bounds = areaOf(each.bounds);
        for (const at of [reach.left, bounds.left, bounds.right, reach.right]) columns.add(at);
        for (const at of [reach.top, bounds.top, bounds.bottom, reach.bottom]) rows.add(at);
        return true;
    });
    const itself = near.indexOf(region);
    const documents = near.map((each) => each.document);
    const xs = divisions(columns, visible.left, visible.right);
    const ys = divisions(rows, visible.top, visible.bottom);
    const keepers = new Set<number>();
    const sharers = new Set<number>();
    let kept = 0;
    xs.slice(0, -1).forEach((x, i) => {
        ys.slice(0, -1).forEach((y, j) => {
            let last: number | undefined; // of those above that receive or drop the touch
            for (const hit of hitTest(documents, display.listed, { x, y }).under) {
                if (hit.region === itself) {
                    if (hit.fate !== 'keptOff' || last === undefined) break;
                    kept += ((xs[i + 1] ?? x) - x) * ((ys[j + 1] ?? y) - y);
                    keepers.add(last);
                    break;
                }
                if (hit.fate !== 'keptOff') last = hit.region;
                const above = documents[hit.region] ?? {};
                if (!flag(above, 'exclusive') && !flag(above, 'dropEvent')) sharers.add(hit.region);
            }
        });
    });
    const names = (found: ReadonlySet<number>): string[] => near.filter((_, i) => found.has(i)).map((each) => each.label);
    const values = { others: names(keepers), percent: Math.min(Math.max(Math.floor((kept * 100) / pixels(visible)), 1), 99) };
    if (kept === pixels(visible)) {
        findings.add('region.covered', values);
        return;
    }
    if (kept > 0) findings.add('region.partly-covered', values);
    if (sharers.size > 0) findings.add('region.shared', { others: names(sharers) });
}

function boundsText({ x, y, width, height }: Rectangle): string {
    return `${width}x${height} at ${x},${y}`;
}

function explainRegion(findings: Findings, display: SceneDisplay, region: SceneRegion): void {
    if (display.document['touchSupport'] === false) findings.add('region.no-touch', { display: display.label });
    const wanted = text(region.document, 'layer');
    const layer = display.listed[findLayer(display.listed, wanted)];
    const on = layer !== undefined && layer['active'] !== false;
    const place = {
        display: display.label,
        layer: layer ? text(layer, 'name') || `#${whole(layer, 'id') ?? '?'}` : wanted,
        zpos: (layer && whole(layer, 'zpos')) ?? 'unknown',
    };
    if (!layer) findings.add(wanted === '' ? 'region.no-layer' : 'region.layer-absent', place);
    else if (!on) findings.add('region.layer-off', place);
    const drops = flag(region.document, 'dropEvent');
    const bounds = boundsOf(region.document);
    const resolution = object(display.document, 'resolution');
    if (!bounds) {
        findings.add('region.no-bounds');
    } else {
        const extent = { bounds: boundsText(bounds), resolution: sizeText(resolution) };
        const full = areaOf(bounds);
        const visible =
            isKnown(resolution) && !isEmpty(resolution)
                ? common(full, { left: 0, top: 0, right: display.width, bottom: display.height })
                : full;
        if (pixels(full) === 0) findings.add('region.empty', extent);
        else if (pixels(visible) === 0) findings.add('region.outside', extent);
        else if (pixels(visible) < pixels(full)) findings.add('region.partly-outside', extent);
        if (pixels(visible) > 0 && on && !region.haptic) {
            addCover(findings, display, region, visible);
            if (!drops) findings.add('region.receives', { ...place, ...extent });
        }
    }
    if (drops) findings.add('region.drops');
    else if (flag(region.document, 'exclusive')) findings.add('region.exclusive');
}

// Displayables.

interface Placement {
    readonly display: SceneDisplay;
    readonly layer: SceneLayer;
}

function placementsOf(scene: Scene, displayable: SceneDisplayable): Placement[] {
    const wanted = list(object(displayable.document, 'upstream'), 'layers').map((layer) => layer['id']);
    return scene.displays.flatMap((display) =>
        display.layers.filter((layer) => wanted.includes(layer.document['id'])).map((layer) => ({ display, layer })),
    );
}

function isHidden(displayable: SceneDisplayable): boolean {
    const record = object(displayable.document, 'upstream');
    return record['is_visible'] === false || record['is_active'] === false;
}

function addPlacement(findings: Findings, scene: Scene, displayable: SceneDisplayable, { display, layer }: Placement): void {
    const size = object(displayable.document, 'size');
    const resolution = object(display.document, 'resolution');
    const zpos = whole(layer.document, 'zpos') ?? 'unknown';
    const values = { display: display.label, layer: layer.label, zpos, size: sizeText(size), resolution: sizeText(resolution) };
    findings.add('displayable.layer', values);
    if (!isKnown(size) || !isKnown(resolution)) return;
    findings.add(covers(resolution, size) ? 'displayable.fits' : 'displayable.larger', values);
    const others = scene.displayables.filter(
        (other) =>
            !isHidden(other) &&
            covers(object(other.document, 'size'), size) &&
            placementsOf(scene, other).some(
                (each) => each.display === display && each.layer.active && zposOf(each.layer.document) > zposOf(layer.document),
            ),
    );
    if (others.length > 0)
        findings.add('displayable.below', { display: display.label, others: others.map((each) => each.label) });
}

function explainDisplayable(findings: Findings, scene: Scene, displayable: SceneDisplayable): void {
    const { document } = displayable;
    const record = object(document, 'upstream');
    const size = object(document, 'size');
    const values = { number: whole(document, 'displayableID') ?? '?', size: sizeText(size) };
    if (!isKnown(size)) findings.add('displayable.no-size');
    else if (isEmpty(size)) findings.add('displayable.empty', values);
    if (!isDocument(document['upstream'])) {
        findings.add('displayable.unknown', values);
        return;
    }
    if (record['is_visible'] === false) findings.add('displayable.invisible', values);
    if (record['is_active'] === false) findings.add('displayable.inactive', values);
    const layers = list(record, 'layers').map((layer) => text(layer, 'name') || `#${whole(layer, 'id') ?? '?'}`);
    if (layers.length === 0) {
        findings.add('displayable.no-layer', values);
        return;
    }
    const places = placementsOf(scene, displayable);
    const lit = places.filter(({ layer }) => layer.active);
    if (places.length === 0) findings.add('displayable.layer-absent', { layers });
    else if (lit.length === 0) findings.add('displayable.layer-off', { layers });
    for (const place of lit) addPlacement(findings, scene, displayable, place);
}

export function explain(scene: Scene, item: Item): Finding[] {
    const findings = new Findings();
    const display = displayOf(scene, item);
    if (item.kind === 'displayable') explainDisplayable(findings, scene, item);
    else if (!display) findings.add('popup.no-display', { display: item.kind === 'display' ? item.label : item.display });
    else if (item.kind === 'popup') explainPopup(findings, display, item);
    else if (item.kind === 'region') explainRegion(findings, display, item);
    else if (item.kind === 'layer') explainLayer(findings, display, item);
    else explainDisplay(findings, display);
    return findings.sorted();
}
