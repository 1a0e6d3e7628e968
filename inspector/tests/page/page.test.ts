// The page in a browser, with the real gateway, bridge and simulator.

import { readFileSync, statSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

import { type Browser, chromium, type Locator, type Page } from 'playwright-core';
import { afterAll, afterEach, beforeAll, beforeEach, expect, test } from 'vitest';

import { Cockpit, top } from './cockpit';

const cockpit = new Cockpit();
let browser: Browser;
let page: Page;
let complaints: string[] = [];

const row = (address: string): Locator => page.locator(`[data-address="${address}"]`);
const button = (name: string): Locator => page.getByRole('button', { name, exact: true });
const properties = (): Locator => page.getByRole('region', { name: 'Properties' });
const callAddress = '/popups/Driver_Display/Incoming_Call';
const request = (popup: string, requested: boolean): string =>
    cockpit.ctl('update', `popups/Driver_Display/${popup}`, `requested=${requested}`);

// The window, where a test does not choose its own.
const [usualWidth, usualHeight] = (process.env['HMX_PAGE_SIZE'] ?? '1280x720').split('x').map(Number);

async function visit(hash = '', width = usualWidth ?? 0, height = usualHeight ?? 0): Promise<void> {
    await page.setViewportSize({ width, height });
    await page.goto(cockpit.url + hash);
    await row('/input/Driver_Display/r3').waitFor();
}

// Where on the screen a point of the driver's display is, while it alone is shown, and flat.
async function spot(x: number, y: number): Promise<[number, number]> {
    const box = await page.locator('.picture').boundingBox();
    if (!box) throw new Error('there is no picture');
    const scale = (box.width - 36) / 1920;
    return [box.x + box.width / 2 + (x - 960) * scale, box.y + box.height / 2 + 2 + (y - 360) * scale];
}

async function drag(from: [number, number], to: [number, number]): Promise<void> {
    await page.mouse.move(...(await spot(...from)));
    await page.mouse.down();
    await page.mouse.move(...(await spot(...to)), { steps: 3 });
    await page.mouse.up();
}

beforeAll(async () => {
    await cockpit.begin();
    browser = await chromium.launch({ executablePath: process.env['CHROMIUM'] ?? '/usr/bin/chromium', args: ['--no-sandbox'] });
});
afterAll(async () => {
    await browser.close();
    await cockpit.end();
});
beforeEach(async () => {
    page = await browser.newPage();
    complaints = [];
    page.on('pageerror', (error) => complaints.push(error.message));
    // What a lost connection and refused requests leave in the console is expected; what the browser refuses the page is not.
    page.on('console', (message) => {
        if (message.type() === 'error' && !message.text().startsWith('Failed to load resource')) complaints.push(message.text());
    });
});
afterEach(async () => {
    await page.close();
    expect(complaints).toEqual([]);
});

test('all that the cockpit has is shown, by name and in the picture', async () => {
    await visit();
    for (const address of [
        '/displays/Cluster_Display',
        '/layerconfigurations/Driver_Display/13',
        '/input/Driver_Display/h1',
        '/popups/Driver_Display/Hint',
    ]) {
        await row(address).waitFor();
    }
    expect(await row('/popups/Driver_Display/Software_Update').textContent()).toContain('suppressed');
    expect(await row('/layerconfigurations/Driver_Display/13').textContent()).toContain('off');
    await page.getByRole('searchbox').fill('map_over');
    expect(await row('/displayables/1002').textContent()).toContain('640×360');
    expect(await page.locator('.pill').textContent()).toContain('live');
});

test('one stream brings everything, unless the displays are known too late', async () => {
    let streams = 0;
    page.on('request', (sent) => void (streams += Number(sent.url().includes('/events?'))));
    const needed = async (): Promise<number> => {
        streams = 0;
        await visit();
        return streams;
    };
    await expect.poll(needed, { interval: 0, timeout: 20_000 }).toBe(1);
});

test('selection goes from the picture to tree and properties, and back; a link brings it back', async () => {
    await visit('#/?display=Driver_Display');
    await page.mouse.click(...(await spot(960, 450)));
    await properties().getByText('HMI_ID_ANDROID_DRIVER_POPUP #3'.replaceAll('_', '_\u200b')).waitFor();
    expect(await row('/input/Driver_Display/r3').getAttribute('aria-selected')).toBe('true');
    expect(page.url()).toContain('#/input/Driver_Display/r3?display=Driver_Display');
    await page.mouse.click(...(await spot(960, 450)));
    await properties().getByText('Layer · z 90').waitFor();
    await page.keyboard.press('t');
    for (let i = 0; i < 3; ++i) await page.keyboard.press('ArrowDown');
    await properties().getByText('suppressed · center · 10').waitFor();
    expect(await properties().textContent()).toContain('Suppressed: Low_Fuel (priority 60) has the slot "center".');
    await button('Show Low_Fuel').click();
    await page.keyboard.press('a');
    await page.reload();
    await properties().getByRole('heading', { name: 'Low_\u200bFuel' }).waitFor();
    expect(await button('Pull apart').getAttribute('aria-pressed')).toBe('true');
});

test('a hit test tells what hmxctl tells', async () => {
    await visit();
    await page.keyboard.press('h');
    const panel = page.getByRole('region', { name: 'Hit test' });
    await panel.locator('select').selectOption('Driver_Display');
    for (const [x, y] of [
        [900, 640],
        [960, 360],
        [5, 5],
    ] as const) {
        await panel.getByLabel('x', { exact: true }).fill(String(x));
        await panel.getByLabel('y', { exact: true }).fill(String(y));
        await panel.getByLabel('y', { exact: true }).press('Enter');
        const shown = (await panel.locator('tbody tr').allTextContents()).map((line) => line.replaceAll('\u200b', ''));
        const lines = cockpit
            .ctl('hit', 'Driver_Display', String(x), String(y))
            .trim()
            .split('\n')
            .slice(1)
            .map((line) => line.split(/ {2,}/));
        expect(shown.length).toBe(lines.length);
        lines.forEach(([outcome = '', region = '', , , bounds = '', sees = ''], i) => {
            expect(shown[i]).toContain(outcome);
            expect(shown[i]).toContain(region);
            expect(shown[i]).toContain(bounds.replace('x', '×'));
            expect(shown[i]).toContain(sees);
        });
    }
    await page.keyboard.press('Escape');
    await page.keyboard.press('p');
    await page.keyboard.press('Shift+ArrowRight');
    expect(await panel.getByLabel('x', { exact: true }).inputValue()).toBe('15');
});

test('a popup is requested and withdrawn; what happened can be gone back to', async () => {
    await visit(`#${callAddress}`);
    await button('Request').click();
    await row(callAddress).getByText('shown').waitFor();
    expect(cockpit.ctl('get', callAddress.slice(1), '-o', 'json')).toContain('"visible":true');
    await row('/popups/Driver_Display/Low_Fuel').getByText('suppressed').waitFor();
    await button('Pause').click();
    request('Incoming_Call', false);
    await page.getByText('2 newer changes').waitFor(); // of the popup, and of the one that has the slot again
    expect(await page.locator('.pill').textContent()).toContain('paused');
    await properties().getByText('It can be changed when the page shows what is now.').waitFor();
    expect(await row(callAddress).textContent()).toContain('shown');
    const link = page.url();
    expect(link).toContain('?at=');
    await page.getByRole('listbox').locator('.change', { hasText: 'Incoming_Call' }).first().click();
    await row(callAddress).getByText('not requested').waitFor();
    await page.keyboard.press(',');
    await row(callAddress).getByText('shown').waitFor();
    await page.getByRole('slider').fill('600000');
    await row(callAddress).getByText('not requested').waitFor();
    await page.evaluate((hash) => (location.hash = hash), new URL(link).hash);
    await row(callAddress).getByText('shown').waitFor();
    await page.keyboard.press('Space');
    await row(callAddress).getByText('not requested').waitFor();
});

test('a recording is opened, scrubbed, stepped and played, and left for what is now', async () => {
    const name = 'phone_call.jsonl';
    const sample = join(top, 'share/recordings', name);
    const fuel = '/popups/Driver_Display/Low_Fuel';
    await visit(`#${fuel}`);
    await page.keyboard.press('o');
    await button(name).click();
    const bar = page.locator('.recorded');
    await bar.getByText('from 2026-11-22 13:39:27.929 to 13:39:29.445').waitFor();
    await row(fuel).getByText('suppressed').waitFor();
    const told = JSON.parse(cockpit.ctl('--from', sample, '--at', '1.2s', 'explain', fuel.slice(1), '-o', 'json')) as {
        findings: { level: string; text: string; remedy: string }[];
    };
    expect(told.findings[0]?.text).toContain('Suppressed: Incoming_Call');
    for (const { text, remedy } of told.findings.filter(({ level }) => level !== 'OK'))
        for (const words of [text, remedy]) expect(await properties().textContent()).toContain(words);
    expect((await button('Request').count()) + (await button('Draw region').count())).toBe(0);
    await page.getByRole('slider').fill('700');
    await row(fuel).getByText('shown').waitFor();
    const link = page.url();
    expect(link).toContain(`recording=${name}`);
    await button('One change forward').click();
    await row(fuel).getByText('suppressed').waitFor();
    await page.getByRole('slider').fill('0');
    await page.getByLabel('Speed').selectOption('10');
    await button('Play').click();
    await page.getByText('1.5 s of 1.5 s').waitFor();
    await page.goto('about:blank');
    await page.goto(link);
    await row(fuel).getByText('shown').waitFor();
    await button('Back to live').click();
    await bar.waitFor({ state: 'detached' });
    await button('Request').waitFor();
    expect(page.url()).not.toContain('recording=');

    // The same by drag and drop, with a line that is spoilt; then a file that is none.
    const drop = async (text: string): Promise<void> => {
        const transfer = await page.evaluateHandle((content) => {
            const made = new DataTransfer();
            made.items.add(new File([content], 'dropped.jsonl'));
            return made;
        }, text);
        await page.dispatchEvent('main', 'dragover', { dataTransfer: transfer });
        await page.dispatchEvent('main', 'drop', { dataTransfer: transfer });
    };
    await drop(readFileSync(sample, 'utf8').replace('{"t":3536081', '{"t":"x"'));
    await bar.getByText('dropped.jsonl').waitFor();
    await bar.getByText('2 lines are not as they should be').click();
    await bar.getByText('line 4: no entry: "t" is not a whole number').waitFor();
    await button('Back to live').click();
    const downstream = readFileSync(sample, 'utf8')
        .split('\n')
        .filter((line) => !/"service":"\/hmx\w/.test(line));
    await drop(downstream.join('\n'));
    await bar.getByText('touch regions, which layers are switched off, layers of displayables').waitFor();
    await button('Back to live').click();
    await drop('hello');
    await page.getByText('dropped.jsonl cannot be opened: no recording').waitFor();
});

test('the time line is downloaded as a recording that hmxctl and the page read', async () => {
    await visit(`#${callAddress}`);
    request('Incoming_Call', true);
    await row(callAddress).getByText('shown').waitFor();
    request('Incoming_Call', false);
    await row(callAddress).getByText('not requested').waitFor();
    const [download] = await Promise.all([page.waitForEvent('download'), button('Download').click()]);
    const file = await download.path();
    const from = (...words: string[]): string => cockpit.ctl('--from', file, ...words);
    for (const words of [
        ['list', 'displays', '-o', 'json'],
        ['list', 'displayables', '-o', 'json'],
        ['list', 'popups', 'display=Driver_Display', '-o', 'json'],
        ['tree'],
        ['hit', 'Driver_Display', '900', '640'],
        ['explain', 'displayables/1002'],
        ['explain', 'displays/Driver_Display'],
    ]) {
        expect([words, from(...words)]).toEqual([words, cockpit.ctl(...words)]);
    }
    expect(from('watch', callAddress.slice(1), 'fields=visible', '--speed', 'max', '-o', 'jsonl')).toMatch(
        /"visible":true[^]*"visible":false/,
    );
    await page.getByLabel('Recording', { exact: true }).setInputFiles(file);
    await page.locator('.recorded').getByText('from').waitFor();
    await row(callAddress).getByText('not requested').waitFor();
    await page.keyboard.press(',');
    await page.keyboard.press(',');
    await row(callAddress).getByText('shown').waitFor();
});

test('a touch region is drawn, moved and deleted; what cannot be changed says why', async () => {
    await visit('#/?display=Driver_Display');
    await button('Draw region').click();
    await page.getByRole('combobox', { name: /^layer/ }).selectOption({ label: 'Home' });
    await drag([200, 100], [500, 300]);
    expect(Number(await page.getByLabel('width', { exact: true }).inputValue())).toBeGreaterThan(100);
    for (const [side, value] of [
        ['x', 100],
        ['y', 50],
        ['width', 300],
        ['height', 200],
    ] as const) {
        await page.getByLabel(side, { exact: true }).fill(String(value));
    }
    await button('Add region').click();
    const drawn = page.locator('[role=treeitem]', { hasText: '300×200 at 100,50' });
    await drawn.waitFor();
    await button('Done').click();
    await drawn.click();
    await page.getByLabel('y', { exact: true }).fill('60');
    await page.getByLabel('y', { exact: true }).press('Enter');
    const moved = page.locator('[role=treeitem]', { hasText: '300×200 at 100,60' });
    await moved.waitFor();
    expect(cockpit.ctl('tree', 'Driver_Display')).toContain('300x200 at 100,60');
    await moved.click();
    await drag([400, 260], [700, 360]); // the corner
    const resized = page.locator('[role=treeitem]', { hasText: /(59|60)\d×(29|30)\d at 100,60/ });
    await resized.click();
    await drag([300, 200], [300, 300]);
    await page.locator('[role=treeitem]', { hasText: /(59|60)\d×(29|30)\d at (9|10)\d,1(5|6)\d/ }).click();
    await button('Delete region').click();
    await expect.poll(() => cockpit.ctl('tree', 'Driver_Display')).not.toContain('at 100,1');
    await row('/input/Driver_Display/r1').click();
    await button('Delete region').click();
    await page.getByText('Regions that an HMI has set itself cannot be changed here.').waitFor();
});

test('a lost service is said at once, the last state stays, and all is true again without reloading', async () => {
    await visit(`#${callAddress}`);
    const losses = page.locator('.losses[role=alert]');
    cockpit.ctl('sim', 'fault', 'popupmanager', 'close=true', 'now=true', 'reopen_ms=1500');
    await losses.getByText(/Lost: popups/).waitFor();
    expect(await row(callAddress).getAttribute('class')).toContain('stale');
    expect(await row('/displays/Driver_Display').getAttribute('class')).not.toContain('stale');
    await expect.poll(() => losses.textContent(), { timeout: 15_000 }).toBe('');

    await cockpit.kill('hmxtolubridge');
    await losses.getByText(/Lost: displays/).waitFor();
    await row('/displays/Driver_Display').waitFor();
    cockpit.ctl('sim', 'popup', 'Driver_Display/Incoming_Call', 'requested=true');
    cockpit.startBridge();
    await row(callAddress).getByText('shown').waitFor();
    await expect.poll(() => losses.textContent(), { timeout: 15_000 }).toBe('');

    await cockpit.kill('hmxgateway');
    await losses.getByText(/Lost: the gateway/).waitFor();
    await row(callAddress).getByText('shown').waitFor();
    request('Incoming_Call', false);
    await cockpit.startGateway();
    await row(callAddress).getByText('not requested').waitFor();
    expect(await page.locator('.pill').textContent()).toContain('live');
    // The gateway has come back without the permission to change anything.
    await button('Request').waitFor({ state: 'detached' });
    await cockpit.kill('hmxgateway');
    await cockpit.startGateway('--allow-changes');
    await button('Request').waitFor();
});

test('where nothing has been read yet, the page says what it waits for', async () => {
    await cockpit.kill('hmxgateway');
    await cockpit.kill('hmxtolubridge');
    await cockpit.startGateway('--allow-changes');
    await page.goto(cockpit.url);
    await page.getByText('Waiting for /hmx').waitFor();
    cockpit.startBridge();
    await row('/displays/Driver_Display').waitFor();
});

test.each(['light', 'dark'] as const)('text stands out from what it is on: %s', async (colorScheme) => {
    await page.emulateMedia({ colorScheme });
    await visit();
    const ratios = await page.evaluate(() => {
        const style = getComputedStyle(document.documentElement);
        const luminance = (name: string): number => {
            const value = parseInt(style.getPropertyValue(`--${name}`).trim().slice(1), 16);
            const [r = 0, g = 0, b = 0] = [value >> 16, (value >> 8) & 255, value & 255].map((part) => {
                const share = part / 255;
                return share <= 0.04045 ? share / 12.92 : ((share + 0.055) / 1.055) ** 2.4;
            });
            return 0.2126 * r + 0.7152 * g + 0.0722 * b;
        };
        const grounds: Record<string, string[]> = {
            panel: ['text', 'dim', 'accent', 'shown', 'wanting', 'suppressed', 'lost', 'input', 'haptic'],
            page: ['text', 'dim', 'shown', 'lost', 'wanting', 'accent'],
            card: ['text', 'dim', 'shown', 'wanting', 'suppressed'],
            mark: ['text', 'dim', 'shown', 'suppressed', 'wanting', 'lost'],
            point: ['text', 'dim', 'shown', 'suppressed', 'wanting'],
            'lost-back': ['text', 'lost'],
            accent: ['on-accent'],
        };
        return Object.entries(grounds).flatMap(([ground, names]) =>
            names.map((name): [string, number] => {
                const [a, b] = [luminance(ground), luminance(name)];
                return [`${name} on ${ground}`, (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05)];
            }),
        );
    });
    expect(ratios.filter(([, ratio]) => !(ratio >= 4.5))).toEqual([]);
});

test('a small window and a tablet show everything; the picture for the README is small enough', async () => {
    for (const [width, height] of [
        [820, 1180],
        [1024, 768],
        [1280, 720],
    ] as const) {
        await visit('#/popups/Driver_Display/Software_Update?view=apart&display=Driver_Display', width, height);
        const [wide, high] = await page.evaluate(() => [
            document.documentElement.scrollWidth,
            document.documentElement.scrollHeight,
        ]);
        expect([wide, high]).toEqual([width, height]);
        for (const part of ['.tree', 'main', '.properties', '.timeline']) {
            const box = await page.locator(part).boundingBox();
            expect(box && box.width > 150 && box.height > 100).toBe(true);
        }
    }
    await page.setViewportSize({ width: 1120, height: 630 });
    request('Incoming_Call', true);
    await row(callAddress).getByText('shown').waitFor();
    await page.waitForTimeout(400); // the layers move apart
    const path = process.env['HMX_PICTURE'] ?? join(tmpdir(), 'hmx_inspector.png');
    await page.screenshot({ path });
    expect(statSync(path).size).toBeLessThan(200_000);
});
