// The tree: everything by name, with the keyboard as trees have it (arrow keys, Home, End).

import { computed, effect, signal } from '@preact/signals';
import { useEffect } from 'preact/hooks';

import { ancestors, outline, type Row } from '../model/outline';
import * as store from '../store';
import { Rows } from './rows';

const opened = signal<ReadonlyMap<string, boolean>>(new Map());
const filter = signal('');
const rows = computed(() => outline(store.scene.value, opened.value, filter.value));

function setOpen(address: string, open: boolean): void {
    opened.value = new Map(opened.peek()).set(address, open);
}

// What is selected elsewhere is made visible here.
function reveal(): () => void {
    return effect(() => {
        if (store.selected.value === undefined) return;
        const item = store.selectedItem.peek();
        for (const address of item ? ancestors(store.scene.peek(), item) : [])
            if (opened.peek().get(address) !== true) setOpen(address, true);
    });
}

function onKey(event: KeyboardEvent): void {
    const all = rows.peek();
    const at = all.findIndex((row) => row.address === store.selected.peek());
    const row = all[at];
    const select = (index: number): void => {
        const next = all[Math.min(Math.max(index, 0), all.length - 1)];
        if (next) store.selected.value = next.address;
    };
    switch (event.key) {
        case 'ArrowDown':
            select(at + 1);
            break;
        case 'ArrowUp':
            select(at - 1);
            break;
        case 'Home':
            select(0);
            break;
        case 'End':
            select(all.length - 1);
            break;
        case 'PageDown':
            select(at + 15);
            break;
        case 'PageUp':
            select(at - 15);
            break;
        case 'ArrowRight':
            if (row?.open === false) setOpen(row.address, true);
            else if (row?.open) select(at + 1);
            break;
        case 'ArrowLeft':
            if (row?.open) setOpen(row.address, false);
            else if (row) {
                const above = all.slice(0, at).reverse();
                const up = above.findIndex((each) => each.depth < row.depth);
                if (up >= 0) select(at - 1 - up);
            }
            break;
        default:
            return;
    }
    event.preventDefault();
}

function idOf(address: string): string {
    return `row${address}`;
}

function TreeRow({ row, index, count }: { row: Row; index: number; count: number }) {
    const selected = store.selected.value === row.address;
    const stale = row.item ? store.scene.value.stale.has(row.item.kind) : store.scene.value.stale.has('displayable');
    const state = row.item?.kind === 'popup' ? row.item.state : '';
    const off = row.item?.kind === 'layer' && !row.item.active;
    return (
        <div
            id={idOf(row.address)}
            class={`row depth${row.depth} ${state}${selected ? ' selected' : ''}${store.hovered.value === row.address ? ' hovered' : ''}${stale ? ' stale' : ''}${off ? ' off' : ''}`}
            role="treeitem"
            aria-level={row.depth}
            aria-selected={selected}
            aria-expanded={row.open}
            aria-posinset={index + 1}
            aria-setsize={count}
            data-address={row.address}
            title={`${row.label}  ${row.detail}`}
            onClick={() => {
                if (row.item) store.selected.value = row.address;
                else setOpen(row.address, !row.open);
            }}
            onPointerEnter={() => (store.hovered.value = row.address)}
            onPointerLeave={() => (store.hovered.value = undefined)}
        >
            <span
                class="twist"
                aria-hidden="true"
                onClick={(event) => {
                    if (row.open === undefined) return;
                    event.stopPropagation();
                    setOpen(row.address, !row.open);
                }}
            >
                {row.open === undefined ? '' : row.open ? '▾' : '▸'}
            </span>
            <span class="mark" aria-hidden="true">
                {row.mark}
            </span>
            <span class="label">{row.label}</span>
            <span class="detail">{row.detail}</span>
        </div>
    );
}

export function Tree() {
    useEffect(reveal, []);
    const all = rows.value;
    const current = all.findIndex((row) => row.address === store.selected.value);
    return (
        <nav class="tree panel" aria-label="Everything by name">
            <input
                id="filter"
                type="search"
                placeholder="Filter by name  /"
                aria-label="Filter by name"
                value={filter.value}
                onInput={(event) => (filter.value = event.currentTarget.value)}
                onKeyDown={(event) => {
                    if (event.key === 'ArrowDown') document.getElementById('tree')?.focus();
                }}
            />
            <Rows
                count={all.length}
                current={current}
                attributes={{
                    id: 'tree',
                    role: 'tree',
                    'aria-label': 'Displays and displayables',
                    'aria-activedescendant': current >= 0 ? idOf(store.selected.value ?? '') : undefined,
                    tabIndex: 0,
                    onKeyDown: onKey,
                }}
                row={(index) => {
                    const row = all[index];
                    return row && <TreeRow key={row.address} row={row} index={index} count={all.length} />;
                }}
            />
            {all.length === 0 && (
                <p class="note">{filter.value === '' ? 'Nothing has been read yet.' : 'Nothing has this in its name.'}</p>
            )}
        </nav>
    );
}
