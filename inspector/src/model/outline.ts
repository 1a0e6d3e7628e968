// The tree as rows: the displays with what is on them, then the displayables.

import { type Document, text, whole } from './documents';
import { type Rectangle } from './documents';
import { stateMarks, stateWords } from './popup_state';
import { flagsOf, type Item, type Scene, type SceneDisplayable, type SceneLayer } from './scene';

export interface Row {
    readonly address: string;
    readonly item: Item | undefined; // nothing: the heading of the displayables
    readonly depth: number; // from 1
    readonly open: boolean | undefined; // nothing: it has no children
    readonly mark: string;
    readonly label: string;
    readonly detail: string;
}

export const displayablesAddress = '/displayables';
const openByItself = 40; // a layer with more on it than this begins closed

function sizeText(size: unknown): string {
    const { width, height } = (size ?? {}) as { width?: number; height?: number };
    return width === undefined && height === undefined ? '' : `${width ?? '?'}×${height ?? '?'}`;
}

export function boundsText(bounds: Rectangle | undefined): string {
    return bounds ? `${bounds.width}×${bounds.height} at ${bounds.x},${bounds.y}` : 'no bounds';
}

function parts(...each: (string | false | undefined)[]): string {
    return each.filter((part) => part !== '' && part !== false && part !== undefined).join(' · ');
}

function numbered(document: Document, member: string, before: string): string | undefined {
    const value = whole(document, member);
    return value === undefined ? undefined : `${before}${value}`;
}

export function markOf(item: Item): string {
    if (item.kind === 'popup') return stateMarks[item.state];
    if (item.kind === 'region') return item.haptic ? '▨' : '▭';
    return { display: '▣', layer: '▱', displayable: '▤' }[item.kind];
}

export function detailOf(item: Item): string {
    const { document } = item;
    switch (item.kind) {
        case 'display':
            return parts(sizeText(document['resolution']), document['touchSupport'] === true && 'touch');
        case 'layer':
            return parts(numbered(document, 'zpos', 'z ') ?? 'no z', !item.active && 'off');
        case 'popup':
            return parts(stateWords[item.state], text(document, 'slot'), numbered(document, 'priorityInlayer', ''));
        case 'region':
            return parts(item.haptic && 'haptic', text(document, 'hmiName'), flagsOf(document).join(', '));
        case 'displayable':
            return parts(
                sizeText(document['size']),
                numbered(document, 'type', 'type '),
                numbered(document, 'displayableID', '#'),
            );
    }
}

// Regions of one HMI differ in number and place: these come first, where a row is narrow.
function labelOf(item: Item): string {
    if (item.kind !== 'region') return item.label;
    return `${numbered(item.document, item.haptic ? 'hapticRegion' : 'regionID', '#') ?? ''} ${boundsText(item.bounds)}`.trim();
}

// `opened`: what was opened or closed by hand. `filter`: only what has this in its label, and what that is in.
export function outline(scene: Scene, opened: ReadonlyMap<string, boolean>, filter: string): Row[] {
    const rows: Row[] = [];
    const wanted = filter.trim().toLowerCase();
    const matches = (item: Item): boolean => item.label.toLowerCase().includes(wanted);
    const leaf = (item: Item, depth: number): Row => {
        return {
            address: item.address,
            item,
            depth,
            open: undefined,
            mark: markOf(item),
            label: labelOf(item),
            detail: detailOf(item),
        };
    };
    // Puts a branch and what is in it; nothing if the filter leaves nothing of them. True if anything was put.
    const branch = (row: Row, itself: boolean, byItself: boolean, children: (() => boolean)[]): boolean => {
        const at = rows.length;
        const open = children.length > 0 && (wanted === '' ? (opened.get(row.address) ?? byItself) : true);
        rows.push({ ...row, open: children.length > 0 ? open : undefined });
        let any = wanted === '' || itself;
        if (open) for (const put of children) any = put() || any;
        if (!any) rows.length = at;
        return any;
    };
    const put =
        (item: Item, depth: number): (() => boolean) =>
        () => {
            if (wanted !== '' && !matches(item)) return false;
            rows.push(leaf(item, depth));
            return true;
        };
    const layer =
        (item: SceneLayer): (() => boolean) =>
        () => {
            const children = [...item.popups, ...item.regions];
            return branch(
                leaf(item, 2),
                matches(item),
                children.length <= openByItself,
                children.map((child) => put(child, 3)),
            );
        };
    for (const display of scene.displays) {
        const children = [...display.layers.map(layer), ...[...display.popups, ...display.regions].map((item) => put(item, 2))];
        branch(leaf(display, 1), matches(display), true, children);
    }
    const { displayables } = scene;
    if (displayables.length > 0) {
        const heading: Row = {
            address: displayablesAddress,
            item: undefined,
            depth: 1,
            open: true,
            mark: '▤',
            label: 'Displayables',
            detail: String(displayables.length),
        };
        const byItself = displayables.length <= openByItself;
        branch(
            heading,
            false,
            byItself,
            displayables.map((item: SceneDisplayable) => put(item, 2)),
        );
    }
    return rows;
}

// What must be open for the item to be seen.
export function ancestors(scene: Scene, item: Item): string[] {
    if (item.kind === 'display') return [];
    if (item.kind === 'displayable') return [displayablesAddress];
    const display = scene.displays.find((each) => each.label === item.display);
    const layer = display?.layers.find(
        (each) => each.popups.some((popup) => popup === item) || each.regions.some((region) => region === item),
    );
    return [display?.address, layer?.address].filter((address) => address !== undefined);
}
