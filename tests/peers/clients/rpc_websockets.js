// rpc-websockets. Argument: a WebSocket address.
const {Client} = require('rpc-websockets');
const {equal, failure, report} = require('./report.js');

async function connect(url) {
  const client = new Client(url, {reconnect: false});
  await new Promise((resolve, reject) => {
    client.on('open', resolve);
    client.on('error', reject);
  });
  return client;
}

async function calls(client) {
  equal(await client.call('sum', [1, 2, 3]), 6, 'sum');
  equal(await client.call('echo', {a: [null, 1.5]}), {a: [null, 1.5]}, 'echo');
  equal((await failure(client.call('none'))).code, -32601, 'none');
}

async function notifications(client, other) {
  const came = [];
  client.on('news', (params) => came.push(params));
  await client.call('subscribe', {subjects: ['news']});
  await other.notify('news', {n: 1});
  await other.notify('news', {n: 2});
  await other.call('sum', []);
  await client.call('sum', []);
  equal(came, [{n: 1}, {n: 2}], 'news');
}

async function main() {
  const url = process.argv[2];
  const [client, other] = [await connect(url), await connect(url)];
  await report('rpc-websockets: calls, ' + url, () => calls(client));
  await report('rpc-websockets: notifications, ' + url, () => notifications(client, other));
  client.close();
  other.close();
}

main();
