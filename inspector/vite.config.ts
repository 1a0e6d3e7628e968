import { defineConfig } from 'vite';

export default defineConfig({
    base: './',
    server: { fs: { allow: ['..'] } }, // the rules are the whole project's
    // The gateway's Content-Security-Policy is `default-src 'self'`: nothing inline, no data: addresses.
    build: { target: 'es2022', assetsInlineLimit: 0, modulePreload: false, reportCompressedSize: true },
    esbuild: { jsx: 'automatic', jsxImportSource: 'preact' },
});
