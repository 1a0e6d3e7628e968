// What people are told.

import { signal } from '@preact/signals';

export interface Notice {
    readonly number: number;
    readonly words: string;
    readonly failed: boolean;
}

export const notices = signal<readonly Notice[]>([]);
let noticeNumber = 0;

export function dismiss(number: number): void {
    notices.value = notices.value.filter((each) => each.number !== number);
}

export function tell(words: string, failed: boolean): void {
    const number = ++noticeNumber;
    notices.value = [...notices.value.slice(-3), { number, words, failed }];
    if (!failed) setTimeout(() => dismiss(number), 4000); // failures stay until they are dismissed
}
