// What the page needs before it can be shown, asked for early.
//
// Which touch surfaces are watched depends on which displays there are. If these were known only from the stream, a second
// connection would have to bring the surfaces, and the page would be built twice. So the displays are requested by index.html,
// together with the page's files, and one stream brings everything. An answer that takes long is not waited for.

import { isDocument, list, text } from '../model/documents';
import { watches } from '../model/scene';

export const patience = 150; // milliseconds

export function late(): Promise<void> {
    return new Promise((done) => setTimeout(done, patience));
}

// The names of the displays; none if they are not known soon. Asked for in the same way as in index.html, or the browser would ask again.
export async function displayNames(): Promise<readonly string[]> {
    const answer = async (): Promise<readonly string[]> => {
        try {
            const document: unknown = await (await fetch(watches.displays)).json();
            return isDocument(document) ? list(document, 'data').map((display) => text(display, 'name')) : [];
        } catch {
            return [];
        }
    };
    return (await Promise.race([answer(), late()])) ?? [];
}
