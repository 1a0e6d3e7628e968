import { expect, test } from 'vitest';

import { nameBasedUuid } from '../../src/model/uuid';

test.each([
    ['hmx/displays/Driver_Display', '19243473-0126-5f4b-b1bf-4879152c72e5'],
    ['Driver_DisplayHMI_ID_ANDROID_DRIVER', 'adc27292-19ea-52e9-aeb3-c4c4c1215fc6'],
    ['Driver_DisplayHint', '49672281-529f-523d-99be-78c450b2a56a'],
])('the id of %s is the one that the bridge computes', (name, id) => {
    expect(nameBasedUuid(name)).toBe(id);
});
