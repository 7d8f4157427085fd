// The console page in a browser, used by keyboard and pointer as people do.
// Arguments: the page's address, a folder for the browser's data.
const {chromium} = require('playwright-core');
const {check, equal, report} = require('./report.js');

const [page_url, data] = process.argv.slice(2);

/// Another client: sends a notification to whoever subscribed.
async function publish(method, params) {
  const answer = await fetch(new URL('rpc', page_url), {
    method: 'POST',
    headers: {'Content-Type': 'application/json'},
    body: JSON.stringify({jsonrpc: '2.0', method, params}),
  });
  equal(answer.status, 200, 'publish');
}

async function call(page, over, method, params) {
  await page.getByRole('radio', {name: over}).check();
  await page.getByRole('combobox', {name: 'Method'}).fill(method);
  await page.getByLabel('Params').fill(params);
  await page.getByRole('button', {name: 'Call', exact: true}).click();
}

async function answered(page, pattern) {
  await page.locator('#outcome').filter({hasText: pattern}).waitFor();
  return page.locator('#answer').textContent();
}

async function calls(page) {
  for (const over of ['HTTP', 'WebSocket']) {
    await call(page, over, 'sum', '[1, 2, 3]');
    equal(JSON.parse(await answered(page, /^Answered, in [0-9.]+ ms$/)).result, 6, over);
    await call(page, over, 'none', '');
    equal(JSON.parse(await answered(page, /^Error -32601: .*, in /)).error.code, -32601, over);
    await call(page, over, 'echo', '[9007199254740993, "<img src=x onerror=alert(1)>"]');
    const echoed = await answered(page, 'Answered');
    check(echoed.includes('9007199254740993') && echoed.includes('<img src=x'), echoed);
  }
  equal(await page.locator('img').count(), 0, 'what peers send became elements');
}

async function badParams(page) {
  await call(page, 'HTTP', 'sum', '[1, ');
  await page.getByRole('alert').filter({hasText: 'no JSON'}).waitFor();
  equal(await page.getByLabel('Params').getAttribute('aria-invalid'), 'true');
  await page.getByLabel('Params').fill('7');
  await page.getByRole('alert').filter({hasText: 'an array or an object'}).waitFor();
}

/// Nothing but keys: the method's example is proposed, and Ctrl+Enter calls.
async function keyboard(page) {
  await page.reload();
  await page.locator('#methods option[value=sum]').waitFor({state: 'attached'});
  await page.getByRole('radio', {name: 'HTTP'}).focus();
  for (const key of ['Tab', 'Tab', 's', 'u', 'm', 'Escape', 'Tab', 'Control+Enter']) await page.keyboard.press(key);
  equal(JSON.parse(await answered(page, 'Answered')).result, 6, 'by keyboard');
}

async function notifications(page) {
  const notes = page.getByRole('log').getByRole('listitem');
  await page.getByLabel('Name;').fill('news.one');
  await page.keyboard.press('Enter');
  const unsubscribe = page.getByRole('button', {name: 'Unsubscribe news.one'});
  await unsubscribe.waitFor();
  await publish('news.other', [0]);
  await publish('news.one', ['<b>hello</b>']);
  await notes.filter({hasText: '<b>hello</b>'}).waitFor();
  equal(await notes.count(), 1, 'only what was subscribed');
  await unsubscribe.click();
  await unsubscribe.waitFor({state: 'detached'});
  await publish('news.one', ['late']);
  await call(page, 'WebSocket', 'sum', '[]');  // whatever was pushed has come before its answer
  await answered(page, 'Answered');
  equal(await notes.count(), 1, 'after it was unsubscribed');
  await page.getByRole('button', {name: 'Clear'}).click();
  equal(await notes.count(), 0, 'cleared');
}

/// What the console is like when its socket cannot be opened, and when it is open again.
async function lost(page) {
  await page.getByLabel('Address').fill('ws://127.0.0.1:1/rpc');
  await call(page, 'WebSocket', 'sum', '[]');
  await answered(page, /^Failed: WebSocket: closed with 1006/);
  await page.getByLabel('Address').fill('/rpc');
  await call(page, 'WebSocket', 'sum', '[5]');
  await answered(page, 'Answered');
}

async function schemes(page) {
  const background = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  await page.emulateMedia({colorScheme: 'dark'});
  const dark = await background();
  await page.emulateMedia({colorScheme: 'light'});
  check(dark !== await background(), 'light and dark look the same');
}

async function main() {
  const context = await chromium.launchPersistentContext(data, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
           '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  context.setDefaultTimeout(20000);
  try {
    const page = await context.newPage();
    const complaints = [];
    page.on('console', (line) => {
      if (['error', 'warning'].includes(line.type())) complaints.push(line.text());
    });
    page.on('pageerror', (error) => complaints.push(String(error)));
    await page.goto(page_url);
    await page.locator('#methods option[value=sum]').waitFor({state: 'attached'});
    for (const step of [calls, badParams, keyboard, notifications, schemes]) {
      await report('browser: ' + step.name, () => step(page));
    }
    await report('browser: no complaints', () => equal(complaints.join('\n'), ''));
    await report('browser: lost', () => lost(page));
  } finally {
    await context.close();
  }
}

main();
