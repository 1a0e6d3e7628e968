// Why a popup is not on the screen.

import { type Document, flag, text, whole } from './documents';
import { displayOf, layerOf, type Scene, type SceneLayer, type ScenePopup } from './scene';

function called(popup: Document): string {
    const priority = whole(popup, 'priorityInlayer');
    return text(popup, 'name') + (priority === undefined ? '' : ` (priority ${priority})`);
}

function slotName(popup: Document): string {
    return text(popup, 'slot') === '' ? 'the slot of popups without one' : `the slot "${text(popup, 'slot')}"`;
}

export interface Reason {
    readonly words: string;
    readonly rival?: ScenePopup; // the popup that is meant
}

function layerReason(popup: ScenePopup, layer: SceneLayer | undefined): Reason[] {
    const names = [...new Set([text(popup.document, 'popupLayerCompositing'), text(popup.document, 'popupLayerLogical')])].filter(
        (name) => name !== '',
    );
    if (!layer && names.length > 0)
        return [{ words: `Its layer is not on this display: ${popup.display} has no layer ${names.join(' or ')}.` }];
    if (!layer) return [{ words: 'It names no layer.' }];
    return layer.active ? [] : [{ words: `Its layer ${layer.label} is switched off.` }];
}

// Why the popup is not on the screen; empty if it is, on a layer that is there.
export function why(scene: Scene, popup: ScenePopup): Reason[] {
    const display = displayOf(scene, popup);
    if (!display) return [{ words: `There is no display ${popup.display}.` }];
    const onLayer = layerReason(popup, layerOf(display, popup));
    if (popup.state === 'shown') return onLayer.filter((reason) => !reason.words.startsWith('It names'));
    const slot = slotName(popup.document);
    const rival = [...display.layers, display]
        .flatMap((place) => place.popups)
        .find(
            (other) =>
                other !== popup &&
                text(other.document, 'slot') === text(popup.document, 'slot') &&
                flag(other.document, 'active'),
        );
    const ownReason = (): Reason => {
        switch (popup.state) {
            case 'idle':
                return { words: 'Nobody has requested it.' };
            case 'suppressed':
                return rival
                    ? { words: `Suppressed: ${called(rival.document)} has ${slot}.`, rival }
                    : { words: `Suppressed, although no other popup has ${slot}.` };
            case 'active':
                return { words: `It has ${slot}, but "visible" was set to false.` };
            default:
                return rival
                    ? { words: `Requested; ${called(rival.document)} has ${slot}.`, rival }
                    : { words: 'Requested; the popup manager has not made it active yet.' };
        }
    };
    return [ownReason(), ...onLayer];
}
