// node build.mjs PAGE WORK OUTPUT
// Bundles the page in the folder PAGE (page.html, main.js) into one HTML file that allows itself its
// own script and style, by their hashes, and nothing else. WORK is the folder whose node_modules
// holds the packages.
import { createHash } from 'node:crypto';
import { createRequire } from 'node:module';
import { readFileSync, writeFileSync } from 'node:fs';
import { join, resolve } from 'node:path';

const [sources, work, output] = process.argv.slice(2).map((path) => resolve(path));
const { build } = createRequire(join(work, 'package.json'))('esbuild');

const { outputFiles, metafile } = await build({
  entryPoints: [join(sources, 'main.js')],
  outdir: work,
  nodePaths: [join(work, 'node_modules')],
  bundle: true,
  minify: true,
  charset: 'utf8',
  format: 'iife',
  target: 'es2020',
  legalComments: 'none',
  write: false,
  metafile: true,
  logLevel: 'warning',
});
const bundled = (end) => outputFiles.find((file) => file.path.endsWith(end)).text.trim();

// The packages' licences ask for their notices in every copy.
const packages = new Set(Object.keys(metafile.inputs)
  .map((file) => /node_modules\/([^/]+)\//.exec(file)?.[1]).filter(Boolean));
const notice = [...packages].sort().map((name) => {
  const text = readFileSync(join(work, 'node_modules', name, 'LICENSE'), 'utf8').trim();
  return `/*! ${name}, MIT License\n${text}\n*/\n`;
}).join('');
const style = bundled('.css');
const script = notice + bundled('.js');
const hashOf = (text) => `'sha256-${createHash('sha256').update(text, 'utf8').digest('base64')}'`;
const page = readFileSync(join(sources, 'page.html'), 'utf8')
  .replace('@STYLE_HASH@', () => hashOf(style))
  .replace('@SCRIPT_HASH@', () => hashOf(script))
  .replace('@STYLE@', () => style)
  .replace('@SCRIPT@', () => script);
writeFileSync(output, page);
