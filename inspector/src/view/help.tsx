// What the keys do and what the signs mean.

import { useEffect, useRef } from 'preact/hooks';

import { stateMarks, stateWords } from '../model/popup_state';
import * as store from '../store';
import { shortcuts } from './keys';

export function Help() {
    const dialog = useRef<HTMLDialogElement>(null);
    const open = store.help.value;
    useEffect(() => {
        if (open) dialog.current?.showModal();
        else dialog.current?.close();
    }, [open]);
    return (
        <dialog ref={dialog} aria-label="Help" onClose={() => (store.help.value = false)}>
            <h2>Keys</h2>
            <table>
                <tbody>
                    {shortcuts.map(([key, meaning]) => (
                        <tr key={key}>
                            <th scope="row">
                                <kbd>{key}</kbd>
                            </th>
                            <td>{meaning}</td>
                        </tr>
                    ))}
                </tbody>
            </table>
            <label class="tick">
                <input
                    type="checkbox"
                    checked={store.singleKeys.value}
                    onChange={(event) => (store.singleKeys.value = event.currentTarget.checked)}
                />{' '}
                these keys are on
            </label>
            <h2>Signs</h2>
            <p>
                {Object.entries(stateMarks).map(([state, mark]) => (
                    <span key={state} class="sign">
                        {mark} {stateWords[state as keyof typeof stateWords]}
                    </span>
                ))}
                <span class="sign">▭ input region; a thick line: exclusive; dotted: drops touches</span>
                <span class="sign">▨ haptic region, hatched</span>
                <span class="sign">▱ layer</span>
            </p>
            <p class="note">
                Popups have no position of their own: their cards stand on their layer, not where they appear on the screen.
            </p>
            <p class="note">hmxgateway {store.about.value.version || 'has not told its version'}</p>
            <div class="actions">
                <button class="primary" autofocus onClick={() => (store.help.value = false)}>
                    Close
                </button>
            </div>
        </dialog>
    );
}
