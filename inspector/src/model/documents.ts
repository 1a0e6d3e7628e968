// The documents that arrive, and how their members are read.
//
// Nothing is assumed about them but that they are JSON: a member that is absent or of another type reads as absent.

export type Document = Readonly<Record<string, unknown>>;
export type Element = Document & { readonly id: string };

export interface Point {
    readonly x: number;
    readonly y: number;
}

export interface Rectangle extends Point {
    readonly width: number;
    readonly height: number;
}

export function isDocument(value: unknown): value is Document {
    return typeof value === 'object' && value !== null && !Array.isArray(value);
}

const nothing: Document = {};

export function object(of: Document, member: string): Document {
    const value = of[member];
    return isDocument(value) ? value : nothing;
}

export function list(of: Document, member: string): readonly Document[] {
    const value = of[member];
    return Array.isArray(value) ? value.filter(isDocument) : [];
}

export function text(of: Document, member: string): string {
    const value = of[member];
    return typeof value === 'string' ? value : '';
}

export function whole(of: Document, member: string): number | undefined {
    const value = of[member];
    return typeof value === 'number' && Number.isInteger(value) ? value : undefined;
}

export function flag(of: Document, member: string): boolean {
    return of[member] === true;
}

export function elements(of: Document): Element[] {
    return list(of, 'elements').filter((each): each is Element => typeof each['id'] === 'string');
}

// "no", "42", "center", "1920x720", "{…}": a value as people read it.
export function shown(value: unknown): string {
    if (value === undefined || value === null) return '–';
    if (typeof value === 'boolean') return value ? 'yes' : 'no';
    if (typeof value === 'string') return value === '' ? '""' : value;
    if (typeof value === 'number') return String(value);
    if (isDocument(value)) {
        const keys = Object.keys(value);
        if (keys.length > 0 && keys.every((key) => key === 'width' || key === 'height')) {
            return `${shown(value['width'])}×${shown(value['height'])}`.replaceAll('–', '?');
        }
    }
    return JSON.stringify(value);
}

// A name that may be broken after its underscores, and before its capitals.
export function breakable(name: string): string {
    return name.replaceAll('_', '_\u200b').replaceAll(/(?<=[a-z])(?=[A-Z])/g, '\u200b');
}
