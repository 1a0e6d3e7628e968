// The colours of the page, which the style sheet declares, for what is painted.

const names = [
    'panel',
    'screen',
    'plane',
    'line',
    'text',
    'dim',
    'accent',
    'input',
    'haptic',
    'shown',
    'wanting',
    'suppressed',
    'lost',
    'card',
] as const;

export type Colours = Readonly<Record<(typeof names)[number], string>>;

export function readColours(): Colours {
    const style = getComputedStyle(document.documentElement);
    return Object.fromEntries(names.map((name) => [name, style.getPropertyValue(`--${name}`).trim()])) as Colours;
}

// "#1d5fa8" as a canvas keeps it in a 32-bit word: red in the lowest byte, and how opaque it is (up to 255) in the highest.
export function word(colour: string, opacity: number): number {
    const value = parseInt(colour.slice(1), 16);
    return ((opacity << 24) | ((value & 0xff) << 16) | (value & 0xff00) | (value >> 16)) >>> 0;
}
