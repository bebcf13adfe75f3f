// node photo.mjs CHROMIUM ADDRESS OUTPUT
// A picture of the viewer at the moment of the address, with a blob pointed at.
import { writeFileSync } from 'node:fs';
import { later, Viewer } from './viewer.mjs';

const [chromium, address, output] = process.argv.slice(2);
const viewer = await Viewer.start(chromium, address, { width: 1400, height: 1060 });
try {
  await viewer.untilPacket('packet > 0');
  await viewer.until('document.querySelectorAll(".u-wrap canvas").length === 3');
  await viewer.press('b');
  await later(1500);
  writeFileSync(output, await viewer.photo());
} finally {
  await viewer.close();
}
