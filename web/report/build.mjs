// node build.mjs SOURCES WORK OUTPUT
// Bundles the page into one HTML file. WORK is the folder whose node_modules holds the packages.
import { createRequire } from 'node:module';
import { readFileSync, writeFileSync } from 'node:fs';
import { join, resolve } from 'node:path';

const [sources, work, output] = process.argv.slice(2).map((path) => resolve(path));
const { build } = createRequire(join(work, 'package.json'))('esbuild');

const { outputFiles } = await build({
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
  logLevel: 'warning',
});
const bundled = (end) => outputFiles.find((file) => file.path.endsWith(end)).text.trim();

// uPlot's licence asks for its notice in every copy.
const notice =
  '/*! uPlot, MIT License\n' +
  readFileSync(join(work, 'node_modules/uplot/LICENSE'), 'utf8').trim() +
  '\n*/\n';
const page = readFileSync(join(sources, 'page.html'), 'utf8')
  .replace('@STYLE@', () => bundled('.css'))
  .replace('@SCRIPT@', () => notice + bundled('.js'));
writeFileSync(output, page);
