import { expect, test } from 'vitest';

import table from '../../../tests/data/explain_cases.json';
import type { Document } from '../../src/model/documents';
import { explain } from '../../src/model/explain';
import { configurationId, type Item, type Scene, SceneMaker, watches } from '../../src/model/scene';
import { stateOf } from './world';

interface Row {
    readonly what: string;
    readonly of?: string;
    readonly says: readonly string[];
    readonly display?: Document;
    readonly layers?: Document[];
    readonly popups?: Document[];
    readonly regions?: Document[];
    readonly displayables?: Document[];
}

function made(rows: Document[] = [], usual: Document = {}): Document[] {
    return rows.map((row, i) => ({ id: `id-${i}`, ...usual, ...row }));
}

function sceneOf(row: Row): Scene {
    const layers: Document[] = row.layers ?? table.layers;
    const inactiveLayers = layers.filter((layer) => layer['active'] === false).map((layer) => layer['id']);
    return new SceneMaker().make(
        stateOf({
            [watches.displays]: [{ ...table.display, ...row.display }],
            [watches.layers]: [{ id: configurationId('D'), layers }],
            [watches.popups]: made(row.popups, table.popup),
            [watches.displayables]: made(row.displayables),
            [watches.input('D')]: [{ id: 'D', regionInfoSorted: made(row.regions, table.region), inactiveLayers }],
        }),
    );
}

function asked(scene: Scene, row: Row): Item | undefined {
    const display = scene.displays[0];
    if (row.of) return row.of === 'layer' ? display?.layers.find((layer) => layer.document['id'] === 1) : display;
    if (row.popups)
        return [...(display?.layers ?? []), display]
            .flatMap((place) => place?.popups ?? [])
            .find((popup) => popup.document.id === 'id-0');
    return row.regions ? display?.input[0] : scene.displayables[0];
}

// The same cases are run against the rules of `hmxctl explain`.
test.each(table.cases as unknown as Row[])('$what', (row) => {
    const scene = sceneOf(row);
    const found = explain(scene, asked(scene, row) as Item);
    expect(found.map((finding) => `${finding.level} ${finding.text}`)).toEqual(row.says);
});
