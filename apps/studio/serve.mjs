// Serves a folder on 127.0.0.1 for the studio page (static files, the
// WebAssembly MIME type that streaming compilation needs, nothing else).
//   node serve.mjs DIR [PORT]   prints the URL; PORT 0 picks a free one
import http from 'node:http';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const kTypes = {
  '.html': 'text/html; charset=utf-8', '.js': 'text/javascript; charset=utf-8', '.mjs': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8', '.wasm': 'application/wasm', '.png': 'image/png', '.json': 'application/json',
};

export function Serve(dir, port) {
  const root = path.resolve(dir);
  const server = http.createServer((req, res) => {
    let rel = decodeURIComponent(new URL(req.url, 'http://x').pathname);
    if (rel.endsWith('/')) rel += 'index.html';
    const file = path.join(root, path.normalize(rel));
    if (!file.startsWith(root + path.sep)) { res.writeHead(403).end(); return; }
    fs.readFile(file, (err, data) => {
      if (err) { res.writeHead(404, { 'Content-Type': 'text/plain' }).end('not found\n'); return; }
      res.writeHead(200, { 'Content-Type': kTypes[path.extname(file)] || 'application/octet-stream',
                           'Cache-Control': 'no-store' }).end(data);
    });
  });
  return new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen(port, '127.0.0.1', () => resolve(server));
  });
}

if (process.argv[1] && fileURLToPath(import.meta.url) === path.resolve(process.argv[1])) {
  const [dir, port = '8765'] = process.argv.slice(2);
  if (!dir || !/^\d+$/.test(port)) {
    console.error('usage: node serve.mjs DIR [PORT]');
    process.exit(2);
  }
  Serve(dir, Number(port)).then((server) => {
    console.log(`Tarvo Ripple Studio: http://127.0.0.1:${server.address().port}/  (Ctrl-C stops)`);
  }, (err) => {
    console.error(`serve.mjs: cannot listen on 127.0.0.1:${port}: ${err.message}`);
    process.exit(1);
  });
}
