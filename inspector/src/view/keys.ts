// Keys that work everywhere on the page. What has the focus comes first: a field keeps what is typed into it.

import * as store from '../store';
import { startDrawing } from './editing';

export const shortcuts: readonly [key: string, meaning: string][] = [
    ['a', 'pull the layers apart, or lay them flat'],
    ['h', 'hit test: arrow keys in the picture move the touch, with Shift by 10'],
    ['d', 'draw a touch region, if the gateway allows changes'],
    ['0', 'all displays; 1 to 9: one of them'],
    ['o', 'open a recording'],
    ['Space', 'pause, go on; play a recording'],
    [', .', 'one change back, forward'],
    ['t p', 'to the tree, to the picture'],
    ['Arrows', 'select in the tree; turn the picture when it is pulled apart'],
    ['/', 'filter the tree'],
    ['?', 'this help'],
    ['Esc', 'end a hit test or drawing; else select nothing'],
];

function takesKeys(target: EventTarget | null): boolean {
    return target instanceof HTMLElement && target.matches('input:not([type=range], [type=checkbox]), select, textarea');
}

function focus(selector: string): void {
    document.querySelector<HTMLElement>(selector)?.focus();
}

function escape(): void {
    if (store.help.peek()) store.help.value = false;
    else if (store.chooser.peek()) store.chooser.value = false;
    else if (store.mode.peek() !== 'look') store.mode.value = 'look';
    else store.selected.value = undefined;
}

function act(key: string): boolean {
    switch (key) {
        case 'a':
            store.pullApart(!store.apart.peek());
            return true;
        case 'h':
            if (store.mode.peek() === 'hit') store.mode.value = 'look';
            else store.startHitTest();
            return true;
        case 'd':
            if (store.mode.peek() === 'draw') store.mode.value = 'look';
            else if (store.about.peek().changes && !store.recording.peek()) startDrawing();
            return true;
        case 'o':
            store.chooser.value = true;
            return true;
        case ' ':
            if (store.recording.peek()) store.togglePlaying();
            else store.togglePause();
            return true;
        case ',':
            store.step(-1);
            return true;
        case '.':
            store.step(1);
            return true;
        case 't':
            focus('#tree');
            return true;
        case 'p':
            focus('.picture');
            return true;
        case '/':
            focus('#filter');
            return true;
        case '?':
            store.help.value = true;
            return true;
        default: {
            if (!/^\d$/.test(key)) return false;
            store.onlyDisplay.value = store.scene.peek().displays[Number(key) - 1]?.label;
            return true;
        }
    }
}

export function listenToKeys(): void {
    document.addEventListener('keydown', (event) => {
        if (event.ctrlKey || event.altKey || event.metaKey || event.defaultPrevented) return;
        if (event.key === 'Escape') {
            if (takesKeys(event.target)) (event.target as HTMLElement).blur();
            else escape();
            return;
        }
        if (takesKeys(event.target) || !store.singleKeys.peek() || store.help.peek() || store.chooser.peek()) return;
        // A button that has the focus is pressed by the space bar.
        if (event.key === ' ' && event.target instanceof HTMLElement && event.target.matches('button, [type=checkbox]')) return;
        if (act(event.key)) event.preventDefault();
    });
}
