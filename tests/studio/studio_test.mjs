// The studio page in headless Chromium against the command line: its
// renders have tarvo-ripple's bytes, its controls are the declared
// parameters at their defaults, a slider move re-renders. Prints the page's
// and the native 640x480 render times (measured, not judged).
// Its ffmpeg string, run in ffmpeg with the frei0r filter, gives the same
// bytes too (when ffmpeg is installed and FREI0R_DIR is not "-").
//   node --experimental-websocket studio_test.mjs STUDIO_DIR TARVO_RIPPLE TIME_PROGRAM FREI0R_DIR [SCREENSHOT.png]
import { spawn, execFileSync } from 'node:child_process';
import crypto from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import zlib from 'node:zlib';
import { createRequire } from 'node:module';
import { Serve } from '../../apps/studio/serve.mjs';

const [studioDir, cli, timeProgram, frei0rDir, screenshot] = process.argv.slice(2);
const tmp = fs.mkdtempSync(path.join(os.tmpdir(), 'tarvo-studio-'));
let failures = 0;
function Check(ok, what) {
  console.log(`${ok ? 'ok  ' : 'FAIL'} ${what}`);
  if (!ok) failures++;
}

// sha256 of a PNG's RGBA bytes, row by row (8-bit RGBA as tarvo-ripple writes it).
function PngDigest(file) {
  const png = fs.readFileSync(file);
  let pos = 8, width = 0, height = 0;
  const idat = [];
  while (pos < png.length) {
    const len = png.readUInt32BE(pos), type = png.toString('ascii', pos + 4, pos + 8);
    const data = png.subarray(pos + 8, pos + 8 + len);
    if (type === 'IHDR') {
      width = data.readUInt32BE(0);
      height = data.readUInt32BE(4);
      if (data[8] !== 8 || data[9] !== 6 || data[12] !== 0) throw new Error(`${file}: not 8-bit RGBA, non-interlaced`);
    } else if (type === 'IDAT') {
      idat.push(data);
    }
    pos += 12 + len;
  }
  const raw = zlib.inflateSync(Buffer.concat(idat));
  const stride = width * 4, out = Buffer.alloc(stride * height);
  for (let y = 0; y < height; y++) {
    const filter = raw[y * (stride + 1)], src = raw.subarray(y * (stride + 1) + 1, (y + 1) * (stride + 1));
    for (let x = 0; x < stride; x++) {
      const a = x >= 4 ? out[y * stride + x - 4] : 0, b = y > 0 ? out[(y - 1) * stride + x] : 0;
      const c = x >= 4 && y > 0 ? out[(y - 1) * stride + x - 4] : 0;
      let p = a;
      if (filter === 0) p = 0;
      else if (filter === 2) p = b;
      else if (filter === 3) p = (a + b) >> 1;
      else if (filter === 4) {
        const pa = Math.abs(b - c), pb = Math.abs(a - c), pc = Math.abs(a + b - 2 * c);
        p = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
      }
      out[y * stride + x] = (src[x] + p) & 0xff;
    }
  }
  return 'sha256:' + crypto.createHash('sha256').update(out).digest('hex');
}

function NativeDigest(size, settings) {
  const file = path.join(tmp, 'native.png');
  const args = ['--demo', file, '--size', size];
  for (const [name, value] of Object.entries(settings)) args.push('--' + name, value);
  execFileSync(cli, args, { stdio: ['ignore', 'ignore', 'inherit'] });
  return PngDigest(file);
}

// ---- Chromium over the DevTools protocol

const chrome = spawn('chromium', [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
  `--user-data-dir=${path.join(tmp, 'profile')}`, '--remote-debugging-port=0', '--window-size=1360,900',
  'about:blank'], { stdio: ['ignore', 'ignore', 'pipe'] });
const wsUrl = await new Promise((resolve, reject) => {
  let text = '';
  const timer = setTimeout(() => reject(new Error('chromium did not open its DevTools port:\n' + text)), 30000);
  chrome.stderr.on('data', (d) => {
    text += d;
    const m = /DevTools listening on (ws:\S+)/.exec(text);
    if (m) { clearTimeout(timer); resolve(m[1]); }
  });
  chrome.on('exit', (code) => reject(new Error(`chromium exited (${code}):\n${text}`)));
});

const Socket = globalThis.WebSocket || createRequire(import.meta.url)('ws');
const ws = new Socket(wsUrl);
await new Promise((resolve, reject) => { ws.onopen = resolve; ws.onerror = () => reject(new Error('DevTools connection failed')); });
let lastId = 0;
const pending = new Map();
ws.onmessage = (e) => {
  const msg = JSON.parse(e.data);
  if (msg.id && pending.has(msg.id)) {
    const { resolve, reject } = pending.get(msg.id);
    pending.delete(msg.id);
    if (msg.error) reject(new Error(JSON.stringify(msg.error)));
    else resolve(msg.result);
  }
};
function Cdp(method, params = {}, sessionId) {
  const id = ++lastId;
  ws.send(JSON.stringify({ id, method, params, sessionId }));
  return new Promise((resolve, reject) => pending.set(id, { resolve, reject }));
}

const server = await Serve(studioDir, 0);
const base = `http://127.0.0.1:${server.address().port}/index.html`;
const { targetId } = await Cdp('Target.createTarget', { url: 'about:blank' });
const { sessionId } = await Cdp('Target.attachToTarget', { targetId, flatten: true });
const Eval = async (expr) => {
  const r = await Cdp('Runtime.evaluate', { expression: expr, returnByValue: true, awaitPromise: true }, sessionId);
  if (r.exceptionDetails) throw new Error(`${expr}: ${r.exceptionDetails.exception?.description || r.exceptionDetails.text}`);
  return r.result.value;
};
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
// The digest once the page has finished at least `renders` renders.
async function Digest(renders = 1) {
  for (let i = 0; i < 1200; i++) {
    const d = await Eval(`(() => { const e = document.getElementById('digest');
      return e ? [e.textContent, Number(e.dataset.renders)] : ['', 0]; })()`);
    if (d[0].startsWith('error') || (d[0].startsWith('sha256:') && d[1] >= renders)) return d[0];
    await sleep(50);
  }
  return 'timeout';
}
async function Open(query) {
  await Cdp('Page.navigate', { url: `${base}?${query}` }, sessionId);
  await sleep(100);
}

let exitCode = 1;
try {
  // Renders: the page's digest equals the command line's for the same settings.
  const cases = [
    ['area sampling, defaults', '640x480', {}],
    ['bilinear', '320x240', { antialias: 'med', radius: '40' }],
    ['nearest (low antialias at draft quality)', '257x191', { antialias: 'low', quality: 'low', 'wave-height': '12' }],
    ['rotated stretch, Hyper Twirl', '320x240', { stretch: '55', 'stretch-angle': '30', twirl: 'hyper-twirl', 'angular-wave-height': '4' }],
    ['chaos blend', '320x240', { waveform: 'spectrum-3', chaos: '75', 'chaos-blend': '60' }],
    ['pin mode, centre moved', '300x200', { 'pin-mode': 'pin-left', center: '90,70.5', radius: '60' }],
    ['time 7 with frequency', '320x240', { time: '7', frequency: '25', waveform: 'triangle', phase: '45' }],
  ];
  for (const [what, size, settings] of cases) {
    await Open(new URLSearchParams({ demo: size, digest: '1', ...settings }).toString());
    const page = await Digest();
    const native = NativeDigest(size, settings);
    Check(page === native, `${what} ${size}: page ${page.slice(0, 20)}… native ${native.slice(0, 20)}…`);
  }

  // Errors reach the page as the command line words them.
  await Open('demo=64x48&digest=1&radius=400');
  const refused = await Digest();
  Check(refused.startsWith('error: --radius 400 is outside'), `an out-of-range value is shown: ${refused}`);

  // The page's ffmpeg string on the page's input picture gives the page's bytes.
  const ffmpegSettings = { radius: '40', center: '100,90.25', twirl: 'twirl', 'wave-height': '6', phase: '30', antialias: 'med' };
  await Open(new URLSearchParams({ demo: '320x240', digest: '1', ...ffmpegSettings }).toString());
  const pageDigest = await Digest();
  const ffmpegLine = await Eval(`document.getElementById('ffmpeg').textContent`);
  let ffmpegFound = true;
  try { execFileSync('ffmpeg', ['-version'], { stdio: 'ignore' }); } catch { ffmpegFound = false; }
  if (frei0rDir === '-' || !ffmpegFound) {
    console.log(`skip ffmpeg string (ffmpeg or the frei0r filter not built): ${ffmpegLine}`);
  } else {
    const input = Buffer.from(await Eval(`(() => { const b = state.input.data; let s = '';
      for (let i = 0; i < b.length; i += 8192) s += String.fromCharCode(...b.subarray(i, i + 8192));
      return btoa(s); })()`), 'base64');
    fs.writeFileSync(path.join(tmp, 'in.rgba'), input);
    const filter = /-vf '([^']*)'/.exec(ffmpegLine)[1];
    execFileSync('ffmpeg', ['-v', 'error', '-f', 'rawvideo', '-pix_fmt', 'rgba', '-s', '320x240', '-i', path.join(tmp, 'in.rgba'),
      '-vf', filter, '-f', 'rawvideo', '-pix_fmt', 'rgba', '-y', path.join(tmp, 'out.rgba')],
      { env: { ...process.env, FREI0R_PATH: frei0rDir }, stdio: ['ignore', 'ignore', 'inherit'] });
    const ffmpegDigest = 'sha256:' + crypto.createHash('sha256').update(fs.readFileSync(path.join(tmp, 'out.rgba'))).digest('hex');
    Check(ffmpegDigest === pageDigest, `ffmpeg string ${filter}: ffmpeg ${ffmpegDigest.slice(0, 20)}… page ${pageDigest.slice(0, 20)}…`);
  }

  // Controls: the sixteen declared parameters, in order, at their defaults.
  await Open('demo=160x120&digest=1');
  await Digest();
  const declared = JSON.parse(execFileSync(cli, ['--list-params', '--json'], { encoding: 'utf8' })).parameters;
  const controls = await Eval(`[...document.querySelectorAll('#controls [data-option]')].map((e) => [e.dataset.option, e.value])`);
  const expected = declared.map((p) => [p.option.slice(2), p.type === 'point' ? ''
    : p.type === 'popup' ? p.entries.find((e) => e.value === p.default).option_value
    : String(p.default)]);
  Check(controls.length === 16 && JSON.stringify(controls) === JSON.stringify(expected),
        `16 controls at their declared defaults: ${JSON.stringify(controls)}`);

  // Moving a slider renders again, with the command line's bytes.
  await Eval(`(() => { const r = document.querySelector('[data-option=radius]').previousElementSibling;
    r.value = '60'; r.dispatchEvent(new Event('input')); })()`);
  const moved = await Digest(2);
  Check(moved === NativeDigest('160x120', { radius: '60' }), `a radius slider move re-renders: ${moved.slice(0, 20)}…`);

  // The page at its defaults, for the README.
  await Open('');
  await Digest(0);
  await sleep(1500);
  if (screenshot) {
    const shot = await Cdp('Page.captureScreenshot', { format: 'png' }, sessionId);
    fs.writeFileSync(screenshot, Buffer.from(shot.data, 'base64'));
  }

  // Render times at 640x480, defaults: the page's worker against the native host.
  await Open('demo=640x480&digest=1');
  await Digest(1);
  const times = [];
  for (let t = 1; t <= 15; t++) {
    await Eval(`(() => { const r = document.getElementById('time'); r.value = '${t}'; r.dispatchEvent(new Event('input')); })()`);
    await Digest(t + 1);
    times.push(Number(await Eval(`document.getElementById('status').dataset.ms`)));
  }
  times.sort((a, b) => a - b);
  const page = { median: times[Math.floor(times.length / 2)], fastest: times[0] };
  const [median, fastest] = execFileSync(timeProgram, ['640x480', '15'], { encoding: 'utf8' }).trim().split(' ').map(Number);
  console.log(`640x480 default render, median (fastest): page (WebAssembly) ${page.median.toFixed(2)} ms ` +
              `(${page.fastest.toFixed(2)}), native one thread ${median.toFixed(2)} ms (${fastest.toFixed(2)}), ` +
              `ratio ${(page.median / median).toFixed(2)} (${(page.fastest / fastest).toFixed(2)})`);
  exitCode = failures ? 1 : 0;
} catch (err) {
  console.error(`studio test: ${err.stack || err}`);
} finally {
  ws.close();
  server.close();
  chrome.kill();
  await new Promise((r) => (chrome.exitCode !== null ? r() : chrome.once('exit', r)));
  fs.rmSync(tmp, { recursive: true, force: true, maxRetries: 10, retryDelay: 200 });
}
process.exit(exitCode);
