import { expect, test } from 'vitest';

import table from '../../../tests/data/hit_cases.json';
import { type Hit, hitTest } from '../../src/model/hit';

// The same cases are run against hmxctl's hit test.
test.each(table.cases)('$what', ({ regions, touch, outcome }) => {
    const result = hitTest(regions, table.layers, touch);
    const words = (hit: Hit): string => {
        const { x, y } = hit.delivered;
        const fate = { receives: 'receives', drops: 'drops', keptOff: 'kept off' }[hit.fate];
        const moved = hit.fate === 'receives' && (x !== touch.x || y !== touch.y) ? ` at ${x},${y}` : '';
        return `${hit.region} ${fate}${hit.margin ? ' in margin' : ''}${moved}${hit.takesFocus ? ' with focus' : ''}`;
    };
    const told = result.notified.map((hit) => `; told ${hit.region}`).join('');
    expect(result.under.map(words).join(', ') + told).toBe(outcome);
});
