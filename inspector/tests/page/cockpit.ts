// A simulated cockpit with its gateway, in a runtime directory of its own. HMX_BIN is where the programs are.

import { type ChildProcess, execFileSync, spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

export const top = fileURLToPath(new URL('../../..', import.meta.url));
const bin = process.env['HMX_BIN'] ?? join(top, 'build/release/bin');

export class Cockpit {
    private readonly directory = mkdtempSync(join(tmpdir(), 'hmx-'));
    private readonly running = new Map<string, ChildProcess>();
    url = '';

    private start(program: string, ...words: string[]): ChildProcess {
        const environment = { ...process.env, KELO_RUNTIME_DIR: this.directory };
        const child = spawn(join(bin, program), words, { env: environment, stdio: ['ignore', 'pipe', 'ignore'] });
        this.running.set(program, child);
        return child;
    }

    startBridge(): void {
        this.start('hmxtolubridge');
    }

    // Listens where it listened before, so that a page finds it again.
    async startGateway(...words: string[]): Promise<void> {
        const port = this.url === '' ? '0' : new URL(this.url).port;
        const page = join(top, 'inspector/dist');
        const recordings = join(top, 'share/recordings');
        const usual = ['--listen', `127.0.0.1:${port}`, '--page', page, '--recordings', recordings];
        const child = this.start('hmxgateway', ...usual, ...words);
        const lines = createInterface({ input: child.stdout as NonNullable<ChildProcess['stdout']> });
        this.url = await new Promise((found, failed) => {
            lines.once('line', (line) => found(line.replace(/^hmxgateway: /, '')));
            child.once('exit', (code) => failed(new Error(`hmxgateway has ended with ${code ?? 'a signal'}`)));
        });
    }

    async begin(): Promise<void> {
        this.start('hmxsim', '--world', join(top, 'share/worlds/cockpit.json'));
        this.startBridge();
        this.ctl('--timeout', '20s', 'wait', '--appear', 'displays/Driver_Display', 'name != null');
        await this.startGateway('--allow-changes');
    }

    ctl(...words: string[]): string {
        return execFileSync(join(bin, 'hmxctl'), ['--runtime-dir', this.directory, ...words], { encoding: 'utf8' });
    }

    async kill(program: string): Promise<void> {
        const child = this.running.get(program);
        if (!child || child.exitCode !== null) return;
        const ended = new Promise((done) => child.once('exit', done));
        child.kill('SIGKILL');
        await ended;
        this.running.delete(program);
    }

    async end(): Promise<void> {
        for (const program of [...this.running.keys()]) await this.kill(program);
        rmSync(this.directory, { recursive: true, force: true });
    }
}
