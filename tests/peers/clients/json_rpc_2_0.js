// json-rpc-2.0, which is client and server on one connection: the host pushes notifications to it, and
// relays calls to it as an agent. Argument: a WebSocket address.
const {JSONRPCClient, JSONRPCErrorException, JSONRPCServer, JSONRPCServerAndClient} = require('json-rpc-2.0');
const WebSocket = require('ws');
const {equal, failure, report} = require('./report.js');

async function connect(url) {
  const socket = new WebSocket(url);
  const peer = new JSONRPCServerAndClient(
      new JSONRPCServer({errorListener: () => {}}), new JSONRPCClient((message) => socket.send(JSON.stringify(message))));
  socket.on('message', (text) => peer.receiveAndSend(JSON.parse(text)));
  socket.on('close', () => peer.rejectAllPendingRequests('closed'));
  await new Promise((resolve, reject) => socket.on('open', resolve).on('error', reject));
  peer.socket = socket;
  return peer;
}

async function calls(peer) {
  equal(await peer.request('sum', [1, 2, 3]), 6, 'sum');
  equal((await failure(peer.request('none'))).code, -32601, 'none');
  // The slow one was asked first, and is answered last.
  const order = [];
  await Promise.all([peer.request('sleep', {ms: 200}).then(() => order.push('sleep')),
                     peer.request('sum', []).then(() => order.push('sum'))]);
  equal(order, ['sum', 'sleep'], 'order');
}

async function notifications(peer, other) {
  const came = [];
  for (const name of ['news', 'weather']) peer.addMethod(name, (params) => { came.push([name, params]); });
  equal(await peer.request('subscribe', {subjects: ['news', 'weather']}), true);
  equal(await peer.request('unsubscribe', {subjects: ['weather']}), true);
  for (let n = 0; n < 100; ++n) other.notify('news', [n]);
  other.notify('weather', {});
  await other.request('sum', []);
  await peer.request('sum', []);
  equal(came, [...Array(100).keys()].map((n) => ['news', [n]]), 'all, in order, no others');
}

async function agent(peer, other) {
  peer.addMethod('join', (texts) => texts.join(''));
  peer.addMethod('fail', () => { throw new JSONRPCErrorException('no', 7); });
  const id = 'node-' + process.pid;
  equal(await peer.request('channel.register', {type: 1, id}), true, 'register');
  const ask = (method, params) => other.request('agent.call', {agent: id, method, params});
  equal(await ask('join', ['a', 'b']), 'ab', 'join');
  equal((await failure(ask('fail', []))).code, 7, 'its error');
  const large = 'x'.repeat(1000000);
  equal((await ask('join', [large, large])).length, 2000000, 'a large answer');
  peer.addMethod('hang', () => new Promise(() => {}));
  const hanging = failure(ask('hang', []));
  await other.request('sum', []);
  peer.socket.terminate();
  equal((await hanging).code, -32603, 'it went');
}

async function main() {
  const url = process.argv[2];
  const [peer, other] = [await connect(url), await connect(url)];
  for (const test of [calls, notifications, agent]) {
    await report(`json-rpc-2.0: ${test.name}, ${url}`, () => test(peer, other));
  }
  other.socket.close();
}

main();
