// SPDX-License-Identifier: MIT
/* Binds buttons, keys and touch to what they do, and starts the page. */

const toggleLoop = () => player.setLoop({ ...player.loop, on: !player.loop.on });
const forgetLoop = () => player.setLoop({ on: false, start: 0, end: song.frames });

function loopFromHere() {
    const { end } = timeline.loop;
    timeline.setLoop(player.time, end > player.time ? end : data.seconds);
}

function loopUpToHere() {
    const { start } = timeline.loop;
    timeline.setLoop(start < player.time ? start : 0, player.time);
}

function showLoopRegion() {
    const { start, end } = timeline.loop;
    view.show(start - 0.1 * (end - start), end + 0.1 * (end - start));
}

function goToMarker(isAfter) {
    const marker = markers.near(player.time, isAfter);
    if (marker || !isAfter) timeline.goTo(marker?.time ?? 0);
}

const addMarker = () => markers.add(player.time);
const zoom = (factor) => view.zoom(factor, view.has(player.time) ? player.time : (view.start + view.end) / 2);
const showAll = () => view.show(0, data.seconds);
const showHelp = () => byId('help').showModal();
const toggleView = () => setView(document.body.dataset.view === 'waveform' ? 'spectrogram' : 'waveform');

const clicks = {
    play: () => player.toggle(),
    toStart: () => timeline.goTo(0),
    loop: toggleLoop,
    loopStart: loopFromHere,
    loopEnd: loopUpToHere,
    addMarker,
    original: toggleOriginal,
    slower: () => setTempo({ speed: tempo.speed - 0.05 }),
    speed: () => setTempo({ speed: 1 }),
    faster: () => setTempo({ speed: tempo.speed + 0.05 }),
    lower: () => setTempo({ semitones: tempo.semitones - 1 }),
    key: () => setTempo({ semitones: 0 }),
    higher: () => setTempo({ semitones: tempo.semitones + 1 }),
    save: saveMix,
    zoomOut: () => zoom(2),
    zoomIn: () => zoom(0.5),
    zoomAll: showAll,
    zoomLoop: showLoopRegion,
    view: toggleView,
    scale: () => setScale(!channels.scalesQuiet),
    showFacts: toggleFacts,
    theme: toggleTheme,
    showHelp,
};
for (const [id, action] of Object.entries(clicks)) byId(id).addEventListener('click', action);
byId('volume').addEventListener('input', () => mixer.setVolume(Number(byId('volume').value)));
byId('volume').addEventListener('dblclick', () => mixer.setVolume(0));

/* After the mouse has been used, keys are for the player and not for what was clicked last. */
document.addEventListener('click', (event) => {
    const isByMouse = event.detail > 0;
    if (isByMouse) event.target.closest('button, input, select')?.blur();
});
byId('preset').addEventListener('change', () => byId('preset').blur());

/* --- Keyboard --- */

const jump = (event) => (event.shiftKey ? 1 : 5);
const keys = {
    Space: () => player.toggle(),
    ArrowLeft: (event) => timeline.goTo(player.time - jump(event)),
    ArrowRight: (event) => timeline.goTo(player.time + jump(event)),
    ArrowUp: (event) => (event.shiftKey ? clicks.higher() : mixer.setVolume(mixer.volume + 1)),
    ArrowDown: (event) => (event.shiftKey ? clicks.lower() : mixer.setVolume(mixer.volume - 1)),
    Home: () => timeline.goTo(0),
    End: () => timeline.goTo(data.seconds),
    Escape: forgetLoop,
    a: toggleOriginal,
    l: toggleLoop,
    i: loopFromHere,
    '[': loopFromHere,
    o: loopUpToHere,
    ']': loopUpToHere,
    m: addMarker,
    n: () => goToMarker(true),
    p: () => goToMarker(false),
    ',': clicks.slower,
    '.': clicks.faster,
    '+': clicks.zoomIn,
    '=': clicks.zoomIn,
    '-': clicks.zoomOut,
    f: showAll,
    z: showLoopRegion,
    v: toggleView,
    '?': showHelp,
};

/* Digits by their place on the keyboard, because with Shift they are other characters; the rest by what it writes. */
function actionOf(event) {
    const digit = /^(?:Digit|Numpad)(\d)$/.exec(event.code);
    if (digit && Number(digit[1]) === 0) return () => mixer.reset();
    if (digit && Number(digit[1]) <= data.stems.length)
        return () => mixer.toggle(Number(digit[1]) - 1, event.shiftKey ? 'solo' : 'muted');
    return keys[event.code === 'Space' ? 'Space' : event.key.length === 1 ? event.key.toLowerCase() : event.key];
}

document.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || byId('help').open) return;
    const control = event.target.closest('button, a, input, select');
    const itsOwn = control?.matches('input') ? /^(Arrow|Home|End|Page)/
        : control?.matches('select') ? /./ : /^(Space|Enter)$/;
    if (control && itsOwn.test(event.code)) return; // a focused control keeps the keys that work it
    const action = actionOf(event);
    if (!action || (event.repeat && !event.key.startsWith('Arrow'))) return;
    event.preventDefault();
    action(event);
});

player.addEventListener('failure', (event) => {
    byId('failure').textContent = event.detail;
    byId('failure').hidden = false;
});
player.addEventListener('change', showPlayer);
mixer.addEventListener('change', applySettings);
markers.addEventListener('change', () => store.put({ markers: markers.list }));
for (const query of ['(prefers-color-scheme: dark)', '(forced-colors: active)'])
    matchMedia(query).addEventListener('change', () => timeline.redraw());

buildPresets();
restore();
showPlayer();
player.check();
requestAnimationFrame(animate);
