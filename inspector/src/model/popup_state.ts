// In which of its states a popup is, and how it is shown.

import { type Document, flag } from './documents';

// shown: on the screen. active: has its slot, but is hidden. wanting: requested, and the popup manager has not decided.
// suppressed: requested, but another popup has the slot. idle: not requested.
export type PopupState = 'shown' | 'active' | 'wanting' | 'suppressed' | 'idle';

export function popupState(popup: Document): PopupState {
    if (flag(popup, 'visible')) return 'shown';
    if (flag(popup, 'active')) return 'active';
    if (flag(popup, 'suppressed')) return 'suppressed';
    return flag(popup, 'requested') ? 'wanting' : 'idle';
}

// A shape for each, so that nobody has to tell colours apart.
export const stateMarks: Record<PopupState, string> = { shown: '●', active: '◐', wanting: '◌', suppressed: '⊘', idle: '○' };
export const stateWords: Record<PopupState, string> = {
    shown: 'shown',
    active: 'active, hidden',
    wanting: 'wanting',
    suppressed: 'suppressed',
    idle: 'not requested',
};
