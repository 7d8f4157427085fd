// jayson's clients: HTTP with kept connections, TLS, a TCP stream, WebSocket.
// Environment: HOST_HTTP, HOST_HTTPS, HOST_WS, HOST_TCP, HOST_TCPS, PEER_CA; FRONTS are further HTTP addresses.
const fs = require('fs');
const http = require('http');
const jayson = require('jayson/promise');
const {equal, failure, report} = require('./report.js');

const ca = fs.readFileSync(process.env.PEER_CA);

function address(name) {
  const url = new URL(process.env[name] || name);
  const made = {host: url.hostname, port: Number(url.port), ca};
  return url.protocol.startsWith('http') ? {...made, path: '/rpc'} : made;  // elsewhere a path is a local socket's
}

async function calls(client) {
  equal((await client.request('sum', [1, 2, 3])).result, 6, 'sum');
  equal((await client.request('echo', {text: '\u00e9\u{1f600}"\\'})).result, {text: '\u00e9\u{1f600}"\\'}, 'echo');
  equal((await client.request('none', [])).error.code, -32601, 'none');
  equal((await client.request('sum', ['a'])).error.code, -32602, 'sum of a text');
  const answers = await Promise.all([...Array(50).keys()].map((n) => client.request('sum', [n, 1])));
  equal(answers.map((answer) => answer.result), [...Array(50).keys()].map((n) => n + 1), 'at once');
}

async function overHttp(where) {
  const agent = new http.Agent({keepAlive: true, maxSockets: 4});
  const client = jayson.Client.http({...where, agent});
  await calls(client);
  await client.request('none', [1], null);  // a notification
  const many = await failure(client.request([client.request('sum', [1], undefined, false)]));
  equal(many.code, 400, 'a batch is refused');
  agent.destroy();
}

async function overWebSocket(url) {
  const client = jayson.Client.websocket({url});
  await new Promise((resolve, reject) => {
    client.ws.on('open', resolve);
    client.ws.on('error', reject);
  });
  try {
    await calls(client);
  } finally {
    client.ws.close();
  }
}

async function main() {
  await report('jayson: HTTP', () => overHttp(address('HOST_HTTP')));
  for (const front of process.env.FRONTS.split(' ')) {
    await report('jayson: HTTP through ' + front, () => overHttp(address(front)));
  }
  await report('jayson: HTTPS', () => calls(jayson.Client.https(address('HOST_HTTPS'))));
  await report('jayson: TCP', () => calls(jayson.Client.tcp(address('HOST_TCP'))));
  await report('jayson: TLS', () => calls(jayson.Client.tls(address('HOST_TCPS'))));
  await report('jayson: WebSocket', () => overWebSocket(process.env.HOST_WS));
}

main();
