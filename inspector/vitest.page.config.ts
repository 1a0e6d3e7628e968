import { defineConfig } from 'vitest/config';

export default defineConfig({
    test: { include: ['tests/page/*.test.ts'], testTimeout: 40_000, hookTimeout: 60_000, fileParallelism: false },
});
