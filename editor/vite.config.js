import { existsSync, readdirSync, readFileSync } from 'node:fs';
import { svelte } from '@sveltejs/vite-plugin-svelte';
import { defineConfig } from 'vite';

/** The licences of all that goes into the page, as they ask for. */
function licenses() {
    return {
        name: 'licenses',
        generateBundle(_, bundle) {
            const packages = new Set();
            for (const chunk of Object.values(bundle))
                for (const id of chunk.moduleIds ?? []) {
                    const found = /^.*node_modules\/(?:@[^/]+\/)?[^/]+/.exec(
                        id.replaceAll('\\', '/').replace(/^\0/, ''),
                    );
                    if (found && existsSync(`${found[0]}/package.json`)) packages.add(found[0]);
                }
            const texts = [...packages].sort().map((folder) => {
                const { name, version, license } = JSON.parse(readFileSync(`${folder}/package.json`, 'utf8'));
                const file = readdirSync(folder).find((entry) => /^licen[sc]e/i.test(entry));
                return `${name} ${version} (${license})\n\n${file ? readFileSync(`${folder}/${file}`, 'utf8') : ''}`;
            });
            this.emitFile({ type: 'asset', fileName: 'licenses.txt', source: texts.join(`\n${'-'.repeat(80)}\n\n`) });
        },
    };
}

export default defineConfig({
    // The page is served below an address that nobody knows beforehand.
    base: './',
    plugins: [svelte(), licenses()],
    build: { target: 'es2022', assetsInlineLimit: 0, chunkSizeWarningLimit: 2000 },
});
