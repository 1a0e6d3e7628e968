// Ids of elements, computed from their names: name-based UUIDs (RFC 9562, version 5) in the URL namespace.
//
// The browser's own SHA-1 is there for secure pages only, and a gateway on another machine serves a plain one.

const constants = [0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6];

function sha1(message: Uint8Array): Uint8Array {
    const length = ((message.length + 8) >> 6) * 64 + 64;
    const padded = new DataView(new ArrayBuffer(length));
    message.forEach((byte, i) => padded.setUint8(i, byte));
    padded.setUint8(message.length, 0x80);
    padded.setUint32(length - 4, message.length * 8);
    const state = [0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0];
    const words = new Uint32Array(80);
    const rotated = (x: number, by: number): number => (x << by) | (x >>> (32 - by));
    const word = (i: number): number => words[i] ?? 0;
    for (let block = 0; block < length; block += 64) {
        for (let i = 0; i < 80; ++i)
            words[i] =
                i < 16 ? padded.getUint32(block + 4 * i) : rotated(word(i - 3) ^ word(i - 8) ^ word(i - 14) ^ word(i - 16), 1);
        let [a = 0, b = 0, c = 0, d = 0, e = 0] = state;
        for (let i = 0; i < 80; ++i) {
            const mixed = i < 20 ? (b & c) | (~b & d) : i < 40 || i >= 60 ? b ^ c ^ d : (b & c) | (b & d) | (c & d);
            const next = (rotated(a, 5) + mixed + e + (constants[Math.floor(i / 20)] ?? 0) + word(i)) | 0;
            e = d;
            d = c;
            c = rotated(b, 30);
            b = a;
            a = next;
        }
        [a, b, c, d, e].forEach((value, i) => (state[i] = ((state[i] ?? 0) + value) | 0));
    }
    const digest = new DataView(new ArrayBuffer(20));
    state.forEach((value, i) => digest.setInt32(4 * i, value));
    return new Uint8Array(digest.buffer);
}

const urlNamespace = [0x6b, 0xa7, 0xb8, 0x11, 0x9d, 0xad, 0x11, 0xd1, 0x80, 0xb4, 0x00, 0xc0, 0x4f, 0xd4, 0x30, 0xc8];

export function nameBasedUuid(name: string): string {
    const bytes = sha1(new Uint8Array([...urlNamespace, ...new TextEncoder().encode(name)])).slice(0, 16);
    bytes[6] = ((bytes[6] ?? 0) & 0x0f) | 0x50;
    bytes[8] = ((bytes[8] ?? 0) & 0x3f) | 0x80;
    const digits = [...bytes].map((byte) => byte.toString(16).padStart(2, '0')).join('');
    return digits.replace(/^(.{8})(.{4})(.{4})(.{4})/, '$1-$2-$3-$4-');
}
