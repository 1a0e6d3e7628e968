import { afterEach, expect, test, vi } from 'vitest';

import { addRegion, changePopup, editRegion, type Owner, type RegionEdit, request } from '../../src/io/requests';
import type { Document } from '../../src/model/documents';
import type { ScenePopup, SceneRegion } from '../../src/model/scene';
import { nameBasedUuid } from '../../src/model/uuid';

const owner: Owner = { display: 'D', hmi: 'HMI', subComponent: 'inspector' };
const bounds = { x: 1, y: 2, width: 30, height: 40 };
const written = { bounds: { upperLeftPoint: { posX: 1, posY: 2 }, width: 30, height: 40 } };

// Plays the gateway: `known` are the regions of the configurations that it has, by subcomponent. Notes all changes.
function playGateway(known: Record<string, Document>): string[] {
    const notes: string[] = [];
    const byPath = new Map(
        Object.entries(known).map(([name, regions]) => [
            `/hmx/regionconfigurations/${nameBasedUuid(`DHMI${name}`)}`,
            { name, regions },
        ]),
    );
    vi.stubGlobal('fetch', (path: string, { method = 'GET', body }: RequestInit) => {
        const there = byPath.get(path);
        if (method !== 'GET') notes.push(`${method} ${there?.name ?? path} ${typeof body === 'string' ? body : ''}`.trim());
        if (method === 'GET' && !there)
            return Promise.resolve(Response.json({ status: 404, detail: 'unknown' }, { status: 404 }));
        return Promise.resolve(Response.json(there ? { regions: there.regions } : {}));
    });
    return notes;
}

afterEach(() => vi.unstubAllGlobals());

function region(members: Document = {}, haptic = false): SceneRegion {
    const document = { hmiName: 'HMI', layer: 'Home', regionID: 4, ...members };
    return { kind: 'region', address: '', haptic, display: 'D', label: 'HMI #4', bounds, document };
}

const home = (...inputRegions: Document[]): Document => ({ infoForAllLayers: [{ layer: 'Home', inputRegions }] });

test.each<[string, Record<string, Document>, string]>([
    [
        'where there is none yet',
        {},
        `POST /hmx/regionconfigurations ${JSON.stringify({ display: 'D', hmi: 'HMI', subComponent: 'inspector', regions: home({ ...written, exclusive: true }) })}`,
    ],
    [
        'beside others of the layer',
        { inspector: home({ keepFocus: true }) },
        `PUT inspector ${JSON.stringify({ regions: home({ keepFocus: true }, { ...written, exclusive: true }) })}`,
    ],
])('a region is added %s', async (_, known, note) => {
    const notes = playGateway(known);
    await addRegion(owner, 'Home', bounds, true);
    expect(notes).toEqual([note]);
});

const other = { ...written, exclusive: true };
test.each<[string, Record<string, Document>, RegionEdit | undefined, string]>([
    [
        'moved',
        { inspector: home(other, written) },
        { bounds: { ...bounds, x: 9 } },
        `PUT inspector ${JSON.stringify({ regions: home(other, { bounds: { upperLeftPoint: { posX: 9, posY: 2 }, width: 30, height: 40 }, translateX: 5, hitOutside: { posX: 1, posY: 0 } }) })}`,
    ],
    [
        'switched',
        { '': home(written) },
        { switches: { exclusive: true } },
        `PUT  ${JSON.stringify({ regions: home({ ...written, translateX: 5, hitOutside: { posX: 1, posY: 0 }, exclusive: true }) })}`,
    ],
    [
        'deleted',
        { '': home({ keepFocus: true }), inspector: home(other, written) },
        undefined,
        `PUT inspector ${JSON.stringify({ regions: home(other) })}`,
    ],
    ['deleted as the last one', { inspector: home(written) }, undefined, 'DELETE inspector'],
])('a region is %s in the configuration that has it', async (_, known, edit, note) => {
    const notes = playGateway(known);
    await editRegion(region({ translateX: 5, hitOutside: { x: 1, y: 0 } }), ['', 'inspector'], edit);
    expect(notes).toEqual([note]);
});

test('a region that no configuration has is left alone, and it is said why', async () => {
    const notes = playGateway({ '': home(other) });
    await expect(editRegion(region(), ['', 'a'], undefined)).rejects.toThrow(
        /no region configuration of HMI with this region \(subcomponents tried: none, "a"\)/,
    );
    expect(notes).toEqual([]);
});

test.each<[string, () => Promise<Response>, string]>([
    ['refused', () => Promise.resolve(Response.json({ detail: 'no such popup' }, { status: 404 })), '404 no such popup.'],
    [
        'not sent',
        () => Promise.resolve(Response.json({ detail: 'gone', sent: 'no' }, { status: 503 })),
        '503 gone. It was not sent: it is safe to repeat it.',
    ],
    [
        'outcome unknown',
        () => Promise.resolve(Response.json({ detail: 'late', sent: 'unknown' }, { status: 504 })),
        '504 late. It may have been carried out: look before you repeat it.',
    ],
    ['not JSON', () => Promise.resolve(new Response('<html>', { status: 500 })), '500 no reason was given.'],
    [
        'no gateway',
        () => Promise.reject(new TypeError('failed')),
        'the gateway cannot be reached. It may have been carried out: look before you repeat it.',
    ],
    [
        'no answer',
        () => Promise.reject(new DOMException('', 'TimeoutError')),
        'no answer within 15 s. It may have been carried out: look before you repeat it.',
    ],
])('a failure is told with its reason: %s', async (_, answer, words) => {
    vi.stubGlobal('fetch', answer);
    await expect(changePopup({ document: { id: 'x' } } as unknown as ScenePopup, { requested: true })).rejects.toThrow(words);
    vi.stubGlobal('fetch', () => Promise.resolve(new Response(null, { status: 204 })));
    expect(await request('DELETE', '/x')).toEqual({});
});
