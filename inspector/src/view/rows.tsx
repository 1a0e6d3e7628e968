// A list of which only the rows in sight exist, so that its length costs nothing. All rows have one height.

import type { ComponentChildren } from 'preact';
import { useCallback, useLayoutEffect, useRef, useState } from 'preact/hooks';

// Higher where fingers point.
const rowHeight = matchMedia('(pointer: coarse)').matches ? 32 : 22;
const margin = 6; // rows beyond what is in sight

interface Props {
    readonly count: number;
    readonly row: (index: number) => ComponentChildren;
    readonly current?: number; // kept in sight when it changes
    readonly attributes: Record<string, unknown>;
}

export function Rows({ count, row, current, attributes }: Props) {
    const box = useRef<HTMLDivElement>(null);
    const [view, setView] = useState({ top: 0, height: 400 });
    const look = useCallback((): void => {
        const { scrollTop: top = 0, clientHeight: height = 0 } = box.current ?? {};
        setView((known) => (known.top === top && known.height === height ? known : { top, height }));
    }, []);
    useLayoutEffect(() => {
        const element = box.current;
        if (!element) return undefined;
        const observer = new ResizeObserver(look);
        observer.observe(element);
        return () => observer.disconnect();
    }, []);
    useLayoutEffect(() => {
        const element = box.current;
        if (!element || current === undefined || current < 0) return;
        const top = current * rowHeight;
        if (top < element.scrollTop) element.scrollTop = top;
        else if (top + rowHeight > element.scrollTop + element.clientHeight)
            element.scrollTop = top + rowHeight - element.clientHeight;
    }, [current]);
    const first = Math.max(Math.floor(view.top / rowHeight) - margin, 0);
    const last = Math.min(Math.ceil((view.top + view.height) / rowHeight) + margin, count);
    const rows: ComponentChildren[] = [];
    for (let i = first; i < last; ++i) rows.push(row(i));
    return (
        <div ref={box} class="rows" onScroll={look} {...attributes}>
            <div class="all" role="presentation" style={{ height: `${count * rowHeight}px`, '--row': `${rowHeight}px` }}>
                <div role="presentation" style={{ transform: `translateY(${first * rowHeight}px)` }}>
                    {rows}
                </div>
            </div>
        </div>
    );
}
