import type { Document } from '../../src/model/documents';
import { type State, taken } from '../../src/model/state';

// The state when these elements have been read, by what is watched.
export function stateOf(world: Record<string, Document[]>): State {
    const arrivals = Object.entries(world).map(([watch, elements]) => ({
        watch,
        event: 'snapshot',
        data: { elements },
        time: 0,
        size: 0,
    }));
    return taken(new Map(), arrivals).state;
}
