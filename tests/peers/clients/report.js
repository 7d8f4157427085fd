// Says what was tried and how it went; the process fails when one of it did.

function check(good, what) {
  if (!good) throw new Error(what);
}

function equal(got, expected, what = '') {
  const texts = [got, expected].map((value) => JSON.stringify(value));
  check(texts[0] === texts[1], `${what}: got ${texts[0]}, expected ${texts[1]}`);
}

async function report(name, run) {
  try {
    await run();
    console.log('ok      ' + name);
  } catch (failure) {
    console.log('FAILED  ' + name + '\n' + (failure.stack || failure));
    process.exitCode = 1;
  }
}

/// The error of a call that must fail.
async function failure(promise) {
  let result;
  try {
    result = await promise;
  } catch (error) {
    return error;
  }
  throw new Error('an error is expected, got ' + JSON.stringify(result));
}

module.exports = {check, equal, failure, report};
