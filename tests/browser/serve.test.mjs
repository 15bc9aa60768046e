// The page of `pelagon serve` in headless Chromium: it loads cleanly, lists
// every parameter, writes through the form, shows the applet's refusal, shows
// a live image that moves (checked on the pixels of screenshots), draws the
// histogram and the LUT curves, keeps the image at 48 bits, and restores
// settings from a configuration it downloaded.
//   node serve.test.mjs PELAGON_BINARY OUTPUT_FOLDER
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import puppeteer from 'puppeteer-core';

const [tool, outDir] = process.argv.slice(2);
if (!tool || !outDir) {
  console.error('usage: node serve.test.mjs PELAGON_BINARY OUTPUT_FOLDER');
  process.exit(2);
}
const chromium = process.env.CHROMIUM || '/usr/bin/chromium';
fs.mkdirSync(outDir, { recursive: true });
const downloads = path.resolve(outDir, 'downloads');
fs.rmSync(downloads, { recursive: true, force: true });
fs.mkdirSync(downloads, { recursive: true });

const failures = [];
function check(ok, what) {
  console.log(`${ok ? 'ok  ' : 'FAIL'} ${what}`);
  if (!ok) failures.push(what);
}

async function until(what, test, ms = 8000) {
  const end = Date.now() + ms;
  for (;;) {
    const v = await test();
    if (v) return v;
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
    await new Promise((r) => setTimeout(r, 100));
  }
}

// The server: the simulator's rolling diagonal at 20 frames/s.
const server = spawn(tool, ['serve', '--port', '0',
  '--set', 'FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR', '--set', 'FG_CAMERASIMULATOR_FRAMERATE=20',
  '--set', 'FG_CAMERASIMULATOR_ROLL=FG_ON'], { stdio: ['ignore', 'pipe', 'inherit'] });
let output = '';
server.stdout.on('data', (d) => { output += d; });
const base = await until('the server address', () => (output.match(/http:\/\/\S+\//) || [])[0]);
const get = async (p) => (await fetch(base + p.replace(/^\//, ''))).json();

const browser = await puppeteer.launch({
  executablePath: chromium,
  headless: true,
  args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'],
});
let exitCode = 0;
try {
  const page = await browser.newPage();
  await page.setViewport({ width: 1500, height: 950 });
  const consoleErrors = [];
  let expectRefusal = false;
  page.on('console', (m) => {
    if (m.type() !== 'error') return;
    // The refused value below is a 422 the browser reports by itself.
    if (expectRefusal && /422/.test(m.text())) return;
    consoleErrors.push(m.text());
  });
  page.on('pageerror', (e) => consoleErrors.push(String(e)));
  const cdp = await page.createCDPSession();
  await cdp.send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: downloads });

  await page.goto(base, { waitUntil: 'domcontentloaded' });
  await page.waitForSelector('body[data-ready=true]', { timeout: 10000 });
  const tree = await get('/api/params');
  const names = tree.categories.flatMap((c) => c.parameters.map((p) => p.name));
  const listed = await page.$$eval('#tree .param', (rows) => rows.map((r) => r.dataset.name));
  check(names.length > 100 && names.every((n) => listed.includes(n)), `the tree lists all ${names.length} parameters`);
  check(await page.$eval('#tree .param[data-name=FG_APPLET_ID] input', (i) => i.readOnly), 'read-only parameters are not editable');
  check(await page.$eval('#tree .param[data-name=FG_FORMAT] select', (s) => s.options.length === 3), 'enumerations are choices');

  // Width through the form.
  const setField = async (name, value) => {
    await page.$eval(`#tree .param[data-name=${name}] input, #tree .param[data-name=${name}] select`, (el, v) => {
      el.value = v;
      el.dispatchEvent(new Event('change'));
    }, String(value));
  };
  await setField('FG_WIDTH', 512);
  await until('FG_WIDTH 512 in the applet', async () => (await get('/api/params/FG_WIDTH')).value === 512);
  check(true, 'changing Width in the form changes the applet');

  expectRefusal = true;
  await setField('FG_WIDTH', 1000);
  const refusal = await until('the refusal', () =>
    page.$eval('#tree .param[data-name=FG_WIDTH] .error', (e) => e.textContent));
  expectRefusal = false;
  check(/-7080/.test(refusal) && /step/.test(refusal), `the refusal shows the applet's error: "${refusal}"`);
  check(await page.$eval('#tree .param[data-name=FG_WIDTH] input', (i) => i.value) === '512' &&
        (await get('/api/params/FG_WIDTH')).value === 512, 'the refused value leaves the old one');

  // Live image.
  await page.click('#run');
  await page.waitForFunction(() => document.getElementById('live').naturalWidth === 512, { timeout: 10000 });
  // Pixels of an element's screenshot, read back through a canvas.
  const pixels = async (selector) => {
    const png = await (await page.$(selector)).screenshot({ encoding: 'base64' });
    return page.evaluate(async (data) => {
      const img = new Image();
      img.src = 'data:image/png;base64,' + data;
      await img.decode();
      const c = document.createElement('canvas');
      c.width = img.width;
      c.height = img.height;
      const g = c.getContext('2d');
      g.drawImage(img, 0, 0);
      return Array.from(g.getImageData(0, 0, c.width, c.height).data);
    }, png);
  };
  const spread = (px) => {
    let lo = 255, hi = 0;
    for (let i = 0; i < px.length; i += 4) { const v = px[i + 1]; lo = Math.min(lo, v); hi = Math.max(hi, v); }
    return hi - lo;
  };
  const difference = (a, b) => {
    let d = 0;
    for (let i = 0; i < Math.min(a.length, b.length); ++i) d += Math.abs(a[i] - b[i]);
    return d / a.length;
  };
  const first = await pixels('#live');
  await new Promise((r) => setTimeout(r, 700));
  const second = await pixels('#live');
  check(spread(first) > 100, 'the live image shows the pattern');
  check(difference(first, second) > 1, 'the live image changes over time');

  const lit = (px) => { let n = 0; for (let i = 0; i < px.length; i += 4) if (px[i] + px[i + 1] + px[i + 2] > 150) ++n; return n; };
  await until('a histogram', async () => lit(await pixels('#histogram')) > 100);
  check(true, 'the histogram is drawn');
  check(lit(await pixels('#lut')) > 100, 'the LUT curves are drawn');

  // Readout at full depth under the cursor.
  const box = await (await page.$('#live')).boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  const read = await until('the pixel read-out', () => page.$eval('#readout', (e) => e.textContent.includes('R ') && e.textContent));
  check(/8 bit/.test(read), `pixel read-out: ${read}`);

  // 48-bit output keeps the live image.
  await setField('FG_FORMAT', 'FG_COL48');
  await until('48-bit output', async () => (await get('/api/params/FG_FORMAT')).value === 'FG_COL48');
  await until('a 12-bit read-out', async () => {
    await page.mouse.move(box.x + box.width / 3, box.y + box.height / 3 + Math.random() * 10);
    return page.$eval('#readout', (e) => /12 bit/.test(e.textContent));
  });
  const deep1 = await pixels('#live');
  await new Promise((r) => setTimeout(r, 700));
  const deep2 = await pixels('#live');
  check(spread(deep1) > 100 && difference(deep1, deep2) > 1, 'the 48-bit live image shows and moves');

  await page.screenshot({ path: path.join(outDir, 'serve-page.png') });

  // Configuration: download from the page, change, upload, restored.
  await page.click('#config-download');
  const saved = await until('the downloaded configuration', () => {
    const f = path.join(downloads, 'pelagon.mcf');
    return fs.existsSync(f) && fs.statSync(f).size > 100 && f;
  });
  await setField('FG_WIDTH', 256);
  await setField('FG_FORMAT', 'FG_COL24');
  await until('the changes', async () => (await get('/api/params/FG_WIDTH')).value === 256);
  await (await page.$('#config-upload')).uploadFile(saved);
  await until('the configuration restored', async () => {
    const w = await get('/api/params/FG_WIDTH');
    const f = await get('/api/params/FG_FORMAT');
    return w.value === 512 && f.value === 'FG_COL48';
  });
  await until('the form restored', () => page.$eval('#tree .param[data-name=FG_WIDTH] input', (i) => i.value === '512'));
  check(true, 'a configuration downloaded from the page and uploaded again restores the settings');

  check(consoleErrors.length === 0, `no console errors${consoleErrors.length ? ': ' + consoleErrors.join(' | ') : ''}`);
} catch (e) {
  console.error(`FAIL ${e.message}`);
  exitCode = 1;
} finally {
  await browser.close();
  server.kill('SIGTERM');
  const status = await new Promise((r) => server.on('exit', (code) => r(code)));
  check(status === 0, `the server stops on SIGTERM with status 0 (${status})`);
}
if (failures.length) exitCode = 1;
process.exit(exitCode);
