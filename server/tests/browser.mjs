// A browser for tests: node browser.mjs PACKAGES OPTIONS, which are where its packages are and
// {"program", "width", "height", "graphics"}. What to do comes as lines of JSON on standard input, an
// answer to each goes to standard output; one before them tells that the browser is there. It ends
// with its input.
import {createRequire} from 'node:module';
import {createInterface} from 'node:readline';

const [packages, options] = process.argv.slice(2);
const {program, width, height, graphics} = JSON.parse(options);
const {chromium} = createRequire(packages)('playwright-core');

// What a server that is not there, or that refuses, lets the browser itself write on the console.
const kOfTheWire = /^(Failed to load resource|WebSocket connection to)/;
const kMadeUp = '--enable-unsafe-swiftshader';
// Debian's chromium lets a card paint all of the page, for which one that is made up takes long.
const kWithGraphics = ['--use-angle=swiftshader', '--disable-gpu-rasterization'];

const answer = what => process.stdout.write(JSON.stringify(what) + '\n');
const requests = createInterface({input: process.stdin});
const launching = chromium.launch({
  executablePath: program,
  args: graphics ? kWithGraphics : ['--disable-gpu'],
  ignoreDefaultArgs: graphics ? [] : [kMadeUp],
  timeout: 0, // who asks knows how long to wait
});
requests.on('close', () => {
  setTimeout(() => process.exit(), 10000); // kills a browser that does not end
  launching.then(browser => browser.close()).catch(() => {}).finally(() => process.exit());
});

try {
  const browser = await launching;
  const page = await browser.newPage({viewport: {width, height}});
  page.setDefaultTimeout(0);
  const session = await page.context().newCDPSession(page);
  const complaints = [];
  page.on('pageerror', error => complaints.push(String(error?.stack ?? error)));
  page.on('console', message => {
    if (message.type() === 'error' && !kOfTheWire.test(message.text())) complaints.push(message.text());
  });

  const actions = {
    prepare: ({script}) => page.addInitScript(script),
    open: ({url}) => page.goto(url),
    run: ({script}) => page.evaluate(script),
    complaints: () => page.evaluate('0').catch(() => 0).then(() => complaints),  // also the latest
    resize: size => page.setViewportSize(size),
    prefer: media => page.emulateMedia(media),
    press: ({key}) => page.keyboard.press(key),
    screenshot: async ({clip}) => (await page.screenshot({clip})).toString('base64'),
    call: ({method, parameters}) => session.send(method, parameters),
    async mouse({kind, x, y, held}) {
      if (held) await page.keyboard.down(held);
      await page.mouse.move(x, y);
      if (kind === 'mousePressed') await page.mouse.down();
      if (kind === 'mouseReleased') await page.mouse.up();
      if (held) await page.keyboard.up(held);
    },
  };
  const silent = new Set(['prepare', 'open', 'resize', 'prefer', 'press', 'mouse']);

  requests.on('line', line => {
    const request = JSON.parse(line);
    actions[request.do](request)
        .then(value => answer({value: silent.has(request.do) ? null : value}))
        .catch(error => answer({error: error.message}));
  });
  answer({value: browser.version()});
} catch (error) {
  answer({error: error.message});
  process.exit(1);
}
