// Requests to the gateway, and what people are told when one fails.

import { type Document, isDocument, list, object, text } from '../model/documents';
import { asResource, newRegion, withAdded, withReplaced } from '../model/regions';
import type { ScenePopup, SceneRegion } from '../model/scene';
import type { Rectangle } from '../model/documents';
import { nameBasedUuid } from '../model/uuid';

// Longer than the bridge waits for an upstream service, so that its answer is what is shown.
const patience = 15_000;

export class RequestFailure extends Error {
    constructor(
        readonly status: number, // 0 if there was no answer
        reason: string,
    ) {
        super(reason);
    }
}

const sentWords: Record<string, string> = {
    no: ' It was not sent: it is safe to repeat it.',
    unknown: ' It may have been carried out: look before you repeat it.',
};

function reasonOf(status: number, problem: Document): string {
    const detail = text(problem, 'detail') || text(problem, 'title') || 'no reason was given';
    return `${status} ${detail}${detail.endsWith('.') ? '' : '.'}${sentWords[text(problem, 'sent')] ?? ''}`;
}

export async function request(method: string, path: string, body?: Document): Promise<Document> {
    let response: Response;
    let document: unknown;
    try {
        response = await fetch(path, {
            method,
            signal: AbortSignal.timeout(patience),
            headers: { accept: 'application/json', ...(body && { 'content-type': 'application/json' }) },
            ...(body && { body: JSON.stringify(body) }),
        });
        const answer = await response.text();
        try {
            document = JSON.parse(answer);
        } catch {
            document = {};
        }
    } catch (error) {
        const late = error instanceof DOMException && error.name === 'TimeoutError';
        const words = late ? `no answer within ${patience / 1000} s.` : 'the gateway cannot be reached.';
        throw new RequestFailure(0, words + (method === 'GET' ? '' : (sentWords['unknown'] ?? '')));
    }
    const answered = isDocument(document) ? document : {};
    if (!response.ok) throw new RequestFailure(response.status, reasonOf(response.status, answered));
    return answered;
}

export function changePopup(popup: ScenePopup, change: Document): Promise<Document> {
    return request('PATCH', `/hmx/popups/${popup.document.id}`, change);
}

export interface Owner {
    readonly display: string;
    readonly hmi: string;
    readonly subComponent: string; // '' if none
}

function pathOf({ display, hmi, subComponent }: Owner): string {
    return `/hmx/regionconfigurations/${nameBasedUuid(display + hmi + subComponent)}`;
}

// The regions that the bridge has of this owner; nothing if it has no such configuration.
async function regionsOf(owner: Owner): Promise<Document | undefined> {
    try {
        return object(await request('GET', pathOf(owner)), 'regions');
    } catch (error) {
        if (error instanceof RequestFailure && error.status === 404) return undefined;
        throw error;
    }
}

export async function addRegion(owner: Owner, layer: string, bounds: Rectangle, exclusive: boolean): Promise<void> {
    const known = await regionsOf(owner);
    const regions = withAdded(known ?? {}, layer, newRegion(bounds, exclusive));
    const { subComponent, ...others } = owner;
    if (known) await request('PUT', pathOf(owner), { regions });
    else await request('POST', '/hmx/regionconfigurations', { ...others, ...(subComponent && { subComponent }), regions });
}

export interface RegionEdit {
    readonly bounds?: Rectangle;
    readonly switches?: Document;
}

// Changes a region, or removes it if there is no edit, in the first configuration that has it.
export async function editRegion(
    region: SceneRegion,
    subComponents: readonly string[],
    edit: RegionEdit | undefined,
): Promise<void> {
    const hmi = text(region.document, 'hmiName');
    for (const subComponent of subComponents) {
        const owner = { display: region.display, hmi, subComponent };
        const known = await regionsOf(owner);
        const replacement = edit && asResource(region, edit.switches, edit.bounds);
        const regions = known && withReplaced(known, region, replacement);
        if (!regions) continue;
        if (list(regions, 'infoForAllLayers').length === 0) await request('DELETE', pathOf(owner));
        else await request('PUT', pathOf(owner), { regions });
        return;
    }
    const tried = subComponents.map((name) => (name === '' ? 'none' : `"${name}"`)).join(', ');
    throw new RequestFailure(
        404,
        `/hmx has no region configuration of ${hmi || 'an HMI without a name'} with this region (subcomponents tried: ${tried}). ` +
            'Regions that an HMI has set itself cannot be changed here. If a client of /hmx has set it, name its subcomponent.',
    );
}
