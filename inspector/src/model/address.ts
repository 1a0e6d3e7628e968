// What stands after the # of the page's address: the selected element, a time, how the picture is seen, and which recording is open:
// one that the gateway serves, or a file that only the user has.
//
//     #/popups/Driver_Display/Low_Fuel?at=2026-11-22T09:40:00.123Z&view=apart&display=Driver_Display
//     #/popups/Driver_Display/Low_Fuel?at=2026-11-22T13:39:29.211Z&recording=phone_call.jsonl

export interface Link {
    readonly selected?: string | undefined;
    readonly at?: number | undefined; // milliseconds of the wall clock
    readonly apart?: boolean | undefined;
    readonly display?: string | undefined; // the only one that is shown
    readonly recording?: string | undefined;
    readonly file?: string | undefined;
}

export function toHash(link: Link): string {
    const query = new URLSearchParams();
    if (link.at !== undefined) query.set('at', new Date(link.at).toISOString());
    if (link.apart) query.set('view', 'apart');
    if (link.display !== undefined) query.set('display', link.display);
    if (link.recording !== undefined) query.set('recording', link.recording);
    if (link.file !== undefined) query.set('file', link.file);
    const tail = query.toString().replaceAll('%3A', ':');
    return `#${link.selected ?? '/'}${tail === '' ? '' : `?${tail}`}`;
}

export function fromHash(hash: string): Link {
    const [selected = '', tail = ''] = hash.replace(/^#/, '').split('?', 2);
    const query = new URLSearchParams(tail);
    const at = Date.parse(query.get('at') ?? '');
    return {
        selected: /^\/\w+\/./.test(selected) ? selected : undefined,
        at: Number.isNaN(at) ? undefined : at,
        apart: query.get('view') === 'apart',
        display: query.get('display') ?? undefined,
        recording: query.get('recording') ?? undefined,
        file: query.get('file') ?? undefined,
    };
}
