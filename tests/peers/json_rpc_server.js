// A JSON-RPC server of another maker; prints its port.
const jayson = require('jayson');
const server = new jayson.Server({
  sum: (args, done) => done(null, args.reduce((a, b) => a + b, 0)),
  fail: (args, done) => done({code: 7, message: 'no'}),
  text: (args, done) => done(null, 'x'.repeat(args[0])),
});
server.http().listen(0, '127.0.0.1', function () { console.log(this.address().port); });
