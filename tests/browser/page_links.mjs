// Opens request pages in the system's headless chromium and reports where
// their links lead, as a browser resolves them.
//
//   node page_links.mjs ROOT PAGE...
//
// ROOT is served over HTTP on a free local port; each PAGE is a path below
// it ("pages/web.html"). Prints one JSON object: the base URL, and for every
// page its anchors, images and icon links with the attribute as written, the
// URL the browser resolved it to, and for HTTP links the status the server
// answered (images also whether they loaded). Exits 1 when chromium cannot
// be started. The chromium used is $TARNWICK_CHROMIUM, else /usr/bin/chromium.
import { createServer } from 'node:http';
import { mkdtempSync, readFileSync, rmSync, statSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join, normalize } from 'node:path';
import puppeteer from 'puppeteer-core';

const [root, ...pages] = process.argv.slice(2);
if (!root || pages.length === 0) {
  console.error('usage: node page_links.mjs ROOT PAGE...');
  process.exit(2);
}

const types = { '.html': 'text/html', '.png': 'image/png', '.ico': 'image/x-icon', '.apk': 'application/octet-stream' };

function serve(request, response) {
  const path = normalize(decodeURIComponent(new URL(request.url, 'http://localhost').pathname));
  const file = join(root, path);
  try {
    if (!file.startsWith(root) || !statSync(file).isFile()) throw new Error('not a file');
    const type = types[path.slice(path.lastIndexOf('.'))] ?? 'application/octet-stream';
    response.writeHead(200, { 'Content-Type': type });
    response.end(readFileSync(file));
  } catch {
    response.writeHead(404);
    response.end();
  }
}

const server = createServer(serve);
await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
const base = `http://127.0.0.1:${server.address().port}`;
const profile = mkdtempSync(join(tmpdir(), 'tarnwick-chromium-'));

let browser;
try {
  browser = await puppeteer.launch({
    executablePath: process.env.TARNWICK_CHROMIUM || '/usr/bin/chromium',
    headless: true,
    userDataDir: profile,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync'],
  });
} catch (error) {
  console.error(`chromium did not start: ${error.message}`);
  server.close();
  rmSync(profile, { recursive: true, force: true });
  process.exit(1);
}

const report = { base, pages: {} };
try {
  for (const name of pages) {
    const page = await browser.newPage();
    await page.goto(`${base}/${name}`, { waitUntil: 'load' });
    const found = await page.evaluate(() => {
      const of = (element, attribute) => ({ written: element.getAttribute(attribute), resolved: element[attribute] });
      return {
        anchors: [...document.querySelectorAll('a')].map((a) => of(a, 'href')),
        images: [...document.querySelectorAll('img')].map((img) => ({ ...of(img, 'src'), loaded: img.complete && img.naturalWidth > 0 })),
        icons: [...document.querySelectorAll('link[rel]')].map((link) => of(link, 'href')),
      };
    });
    for (const link of [...found.anchors, ...found.images, ...found.icons]) {
      if (link.resolved.startsWith(base)) link.status = (await fetch(link.resolved)).status;
    }
    report.pages[name] = found;
    await page.close();
  }
} finally {
  await browser.close();
  server.close();
  rmSync(profile, { recursive: true, force: true });
}
console.log(JSON.stringify(report));
