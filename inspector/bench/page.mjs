// How fast the page is, in Chromium: the first picture, a change until it is painted, 200 changes a second, reading a recording of
// 100,000 changes, and turning what is the most that it is made for: 4 displays with 20 layers of 500 touch regions. The gateway is played by this script, since one answer
// of an input manager is too small for so many regions. Usage: node bench/page.mjs (after `npm run build`)

import { createHash } from 'node:crypto';
import { readdir, readFile } from 'node:fs/promises';
import { createServer } from 'node:http';
import { extname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { gzipSync } from 'node:zlib';

import { chromium } from 'playwright-core';

const dist = fileURLToPath(new URL('../dist', import.meta.url));
const types = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.svg': 'image/svg+xml' };

let seed = 1;
function random(below) {
    seed = (seed * 16807) % 2147483647;
    return seed % below;
}

// As the bridge computes it.
function configurationId(display) {
    const namespace = Buffer.from('6ba7b8119dad11d180b400c04fd430c8', 'hex');
    const bytes = createHash('sha1').update(namespace).update(`hmx/layerconfigurations/${display}`).digest();
    bytes[6] = (bytes[6] & 0x0f) | 0x50;
    bytes[8] = (bytes[8] & 0x3f) | 0x80;
    return bytes.toString('hex', 0, 16).replace(/^(.{8})(.{4})(.{4})(.{4})/, '$1-$2-$3-$4-');
}

// A world of displays, as the gateway's watches bring it.
function makeWorld(displays, layers, regions, popups) {
    const world = { '/hmx/displays': [], '/hmx/displayables': [], '/hmx/layerconfigurations': [], '/hmx/popups': [] };
    for (let d = 0; d < displays; ++d) {
        const name = `Display_${d}`;
        world['/hmx/displays'].push({ id: `d${d}`, name, touchSupport: true, resolution: { width: 1920, height: 720 } });
        const listed = Array.from({ length: layers }, (_, l) => ({ id: 100 * d + l, name: `Layer_${l}`, zpos: 10 * l }));
        world['/hmx/layerconfigurations'].push({ id: configurationId(name), name: '', layers: listed });
        const regionInfoSorted = Array.from({ length: layers * regions }, (_, i) => ({
            regionID: i,
            hmiName: 'HMI_ID_ANDROID_DRIVER',
            layer: `Layer_${layers - 1 - Math.floor(i / regions)}`,
            bounds: { pointMin: { x: random(1800), y: random(660) }, width: 20 + random(100), height: 20 + random(40) },
            exclusive: random(10) === 0,
        }));
        world[`/input/${name}`] = [{ id: name, name, regionInfoSorted, hapticInfoSorted: [] }];
        for (let i = 0; i < popups; ++i) {
            const requested = i % 4 === 0;
            const popup = {
                id: `p${d}-${i}`,
                name: `Popup_${i}`,
                display: name,
                popupLayerCompositing: `Layer_${i % layers}`,
                slot: `s${i % 6}`,
            };
            world['/hmx/popups'].push({
                ...popup,
                priorityInlayer: i,
                requested,
                active: false,
                visible: false,
                suppressed: requested,
            });
        }
    }
    return world;
}

// A recording of the world's popups, as hmxctl writes them.
function makeRecording(world, count) {
    const lines = [
        '{"recording":1,"programs":{},"wall":"2026-11-22T12:30:00.000000000+01:00","zone":"","origin":0,"upstream":false}',
    ];
    const numbers = new Map();
    const write = (t, path, parameters, rest) => {
        const key = path + JSON.stringify(parameters ?? null);
        numbers.set(key, (numbers.get(key) ?? 0) + 1);
        lines.push(JSON.stringify({ t, n: numbers.get(key), service: '/hmx', path, parameters, ...rest }));
    };
    const whole = (data) => ({ event: 'state', status: 200, document: { total: data.length, totalPages: 1, data } });
    for (const path of ['/displays', '/displayables', '/layerconfigurations'])
        write(1, path, undefined, whole(world[`/hmx${path}`]));
    const displays = world['/hmx/displays'].map(({ name: display }) => ({
        display,
        popups: world['/hmx/popups'].filter((popup) => popup.display === display),
    }));
    for (const { display, popups } of displays) write(1, '/popups', { display }, whole(popups));
    for (let i = 0; i < count; ++i) {
        const { display, popups } = displays[i % displays.length];
        const at = random(popups.length);
        const element = { ...popups[at], requested: i % 3 === 0, requestData: `${'caller=Ada '.repeat(20)}${i}` };
        const steps = [{ step: 'set', at, element }];
        write(1e6 * i, '/popups', { display }, { event: 'change', status: 200, array: 'data', steps });
    }
    return Buffer.from(`${lines.join('\n')}\n`);
}

async function serve(world, recording) {
    const streams = new Set();
    const send = (stream, watch, event, data) => stream.write(`event: ${event}\ndata: ${JSON.stringify({ watch, data })}\n\n`);
    const server = createServer(async (request, response) => {
        const url = new URL(request.url, 'http://localhost');
        if (url.pathname === '/events') {
            response.writeHead(200, { 'content-type': 'text/event-stream' });
            streams.add(response);
            request.on('close', () => streams.delete(response));
            for (const watch of url.searchParams.getAll('watch'))
                send(response, watch, 'snapshot', { elements: world[watch] ?? [] });
        } else if (url.pathname === '/recordings/large.jsonl') {
            response.end(recording);
        } else if (world[url.pathname]) {
            response.end(JSON.stringify({ total: world[url.pathname].length, totalPages: 1, data: world[url.pathname] }));
        } else if (url.pathname === '/about') {
            response.end('{"version":"bench","changes":false}');
        } else {
            const file = join(dist, url.pathname === '/' ? 'index.html' : url.pathname);
            response.writeHead(200, { 'content-type': types[extname(file)], 'content-security-policy': "default-src 'self'" });
            response.end(await readFile(file));
        }
    });
    await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
    return {
        url: `http://127.0.0.1:${server.address().port}/`,
        change: (element) => {
            for (const stream of streams) send(stream, '/hmx/popups', 'changed', { element });
        },
        stop: () => {
            for (const stream of streams) stream.end();
            server.close();
        },
    };
}

const part = (sorted, share) => sorted[Math.min(Math.floor(sorted.length * share), sorted.length - 1)] ?? NaN;
const ascending = (values) => [...values].sort((a, b) => a - b);
const report = (what, values, limit) => {
    const sorted = ascending(values);
    console.log(
        `${what}: ${part(sorted, 0.5).toFixed(0)} ms median, ${part(sorted, 0.95).toFixed(0)} ms p95 of ${sorted.length} (limit ${limit})`,
    );
};

async function size() {
    let total = 0;
    for (const entry of await readdir(dist, { withFileTypes: true, recursive: true })) {
        if (entry.isFile()) total += gzipSync(await readFile(join(entry.parentPath ?? entry.path, entry.name))).length;
    }
    console.log(`size: ${(total / 1000).toFixed(1)} kB gzipped in all (limit 80)`);
}

async function open(browser, url) {
    const page = await browser.newPage({ viewport: { width: 1280, height: 720 } });
    page.on('pageerror', (error) => console.error(error));
    await page.goto(url);
    return page;
}

// From the navigation to the frame after the picture is painted and the tree has its first touch region: all that is shown first is
// there then. Nothing of the measurement is in between: the page tells its time by itself. Each time in a new tab, which has
// nothing of the page in its cache; in a new profile, too, the time has what the browser does to set that up.
async function firstPicture(browser, url) {
    const times = async (what, limit, open) => {
        const found = [];
        for (let i = 0; i < 15; ++i) {
            const page = await open();
            await page.addInitScript(() => {
                const { fillText } = CanvasRenderingContext2D.prototype;
                let painted = false;
                let said = false;
                const look = () => {
                    if (said || !painted || !document.querySelector('[data-address^="/input/"]')) return;
                    said = true;
                    requestAnimationFrame(() => console.info(`first picture ${performance.now()}`));
                };
                CanvasRenderingContext2D.prototype.fillText = function (words, ...rest) {
                    painted ||= words.startsWith('Display_');
                    look();
                    return fillText.call(this, words, ...rest);
                };
                new MutationObserver(look).observe(document, { subtree: true, childList: true });
            });
            const said = page.waitForEvent('console', (message) => message.text().startsWith('first picture'));
            await page.goto(url);
            found.push(Number((await said).text().split(' ').at(-1)));
            await page.close();
        }
        report(what, found, limit);
    };
    const viewport = { width: 1280, height: 720 };
    const profile = await browser.newContext({ viewport });
    await (await profile.newPage()).waitForTimeout(1000); // a browser that is running, not one that starts
    await times('first picture', 300, () => profile.newPage());
    await times('first picture, in a new profile', 'none', () => browser.newPage({ viewport }));
    await profile.close();
}

// One popup is changed, and brings the time as its priority: what the tree shows and the frame after it tell how long it took.
// Others are changed beside it, up to `rate` changes a second.
async function changes(browser, gateway, world, rate, seconds) {
    const page = await open(browser, gateway.url);
    const marked = world['/hmx/popups'][3];
    await page.waitForSelector('[data-address^="/input/"]');
    await page.evaluate(() => {
        window.latencies = [];
        let last = '';
        new MutationObserver(() => {
            const [time] =
                /\d{6,}$/.exec(document.querySelector('[data-address="/popups/Display_0/Popup_3"]')?.textContent ?? '') ?? [];
            if (time === undefined || time === last) return;
            last = time;
            requestAnimationFrame(() => window.latencies.push((Date.now() % 1e9) - Number(time)));
        }).observe(document.body, { subtree: true, childList: true, characterData: true });
    });
    const begun = performance.now();
    let sent = 0;
    while (performance.now() - begun < seconds * 1000) {
        const other = world['/hmx/popups'][sent % world['/hmx/popups'].length];
        if (sent % 10 === 0) gateway.change({ ...marked, priorityInlayer: Date.now() % 1e9 });
        else if (other !== marked) gateway.change({ ...other, requested: sent % 3 === 0, requestData: String(sent) });
        const wait = begun + (++sent * 1000) / rate - performance.now();
        if (wait > 0) await new Promise((resolve) => setTimeout(resolve, wait));
    }
    await page.waitForTimeout(300);
    report(`change to paint at ${(sent / seconds).toFixed(0)} changes/s`, await page.evaluate(() => window.latencies), 50);
    await page.close();
}

// From the navigation until the recording is shown, and what came between two frames meanwhile; then a jump to its middle.
async function reading(browser, gateway, recording) {
    const page = await browser.newPage({ viewport: { width: 1280, height: 720 } });
    await page.addInitScript(() => {
        const frames = (window.frames_ = []);
        const look = (time) => {
            frames.push(time);
            if (document.querySelector('.recorded [class=primary]')) window.opened = performance.now();
            else requestAnimationFrame(look);
        };
        requestAnimationFrame(look);
    });
    await page.goto(`${gateway.url}#/popups/Display_0/Popup_1?recording=large.jsonl`);
    const opened = await (await page.waitForFunction(() => window.opened, undefined, { timeout: 120_000 })).jsonValue();
    const frames = await page.evaluate(() => window.frames_);
    const between = ascending(frames.slice(1).map((time, i) => time - frames[i]));
    console.log(
        `recording of ${(recording.length / 1e6).toFixed(0)} MB: shown after ${(opened / 1000).toFixed(1)} s; between two frames ` +
            `${part(between, 0.5).toFixed(0)} ms median, ${part(between, 0.99).toFixed(0)} ms p99, ${between.at(-1)?.toFixed(0)} ms at most`,
    );
    const jumps = await page.evaluate(async () => {
        const slider = document.querySelector('.slider');
        const times = [];
        for (const part of [0.5, 0.01, 0.75, 0.25, 0.99, 0.4]) {
            const begun = performance.now();
            slider.value = part * Number(slider.max);
            slider.dispatchEvent(new Event('input', { bubbles: true }));
            await new Promise((resolve) => requestAnimationFrame(() => setTimeout(resolve)));
            times.push(performance.now() - begun);
        }
        return times;
    });
    report('a jump in it until it is painted', jumps, 'none');
    await page.close();
}

// The time between frames while a mouse turns the displays.
async function turning(browser, gateway) {
    const page = await open(browser, `${gateway.url}#/?view=apart`);
    await page.waitForSelector('[data-address^="/layerconfigurations/"]');
    await page.waitForTimeout(3000);
    const box = await page.locator('.picture').boundingBox();
    await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
    await page.mouse.down();
    const frames = await page.evaluate(async () => {
        const canvas = document.querySelector('.picture');
        const { left, top, width, height } = canvas.getBoundingClientRect();
        const times = [];
        for (let i = 0; i < 150; ++i) {
            const [clientX, clientY] = [left + width / 2 + 120 * Math.sin(i / 15), top + height / 2 + 60 * Math.cos(i / 15)];
            canvas.dispatchEvent(new PointerEvent('pointermove', { clientX, clientY, bubbles: true, pointerId: 1 }));
            times.push(await new Promise((resolve) => requestAnimationFrame(resolve)));
        }
        return times.slice(10);
    });
    await page.mouse.up();
    const between = frames.slice(1).map((time, i) => time - frames[i]);
    const perSecond = (1000 * between.length) / (frames.at(-1) - frames[0]);
    console.log(
        `turning 40,000 regions: ${perSecond.toFixed(0)} frames/s, ${part(ascending(between), 0.95).toFixed(0)} ms p95 (limit 50 frames/s)`,
    );
    if (process.env.PICTURE) await page.screenshot({ path: process.env.PICTURE });
    await page.close();
}

const browser = await chromium.launch({ executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium', args: ['--no-sandbox'] });
try {
    await size();
    const usual = makeWorld(3, 4, 10, 12);
    const gateway = await serve(usual);
    await firstPicture(browser, gateway.url);
    await changes(browser, gateway, usual, 10, 5);
    await changes(browser, gateway, usual, 200, 5);
    gateway.stop();
    const recording = makeRecording(usual, 100_000);
    const recorder = await serve(usual, recording);
    await reading(browser, recorder, recording);
    recorder.stop();
    const largest = await serve(makeWorld(4, 20, 500, 10));
    await turning(browser, largest);
    largest.stop();
} finally {
    await browser.close();
}
process.exit(0);
