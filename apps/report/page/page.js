// SPDX-License-Identifier: MIT
/* The page around player and mixer: builds the tracks from the data, and binds mouse and keyboard. */

const data = JSON.parse(document.getElementById('data').textContent);
const byId = (id) => document.getElementById(id);

/** 3:07.4 */
function clock(seconds, digits = 1) {
    const rounded = Number(seconds.toFixed(digits));
    const hours = Math.floor(rounded / 3600);
    const minutes = Math.floor(rounded / 60) % 60;
    const rest = (rounded % 60).toFixed(digits).padStart(digits ? 3 + digits : 2, '0');
    return hours ? `${hours}:${String(minutes).padStart(2, '0')}:${rest}` : `${minutes}:${rest}`;
}

/** A factor as text; null stands for what is no finite number. */
function decibels(factor, unit = 'dB') {
    if (factor === null) return 'not finite';
    const text = factor > 0 ? (20 * Math.log10(factor)).toFixed(1).replace('-', '\u2212') : '\u2212\u221e';
    return `${text} ${unit}`.trim();
}

const titleOf = (name) => (name[0].toUpperCase() + name.slice(1)).replaceAll('_', ' ');

/* The mix is the sum of six stems, so it would double them. */
const mixer = new Mixer(data.stems.map((stem) => stem.name === 'mix' && data.stems.length > 1));
const tracks = [];

function buildFacts() {
    document.title = `${data.name} \u2013 stems`;
    byId('name').textContent = data.name;
    byId('duration').textContent = clock(data.seconds);
    byId('position').max = data.seconds;
    byId('made').textContent = `Separated by tonwerk-separate ${data.version} with the model ${data.model}`
        + `${data.license ? ` (licence of its weights: ${data.license.replace(/\.$/, '')})` : ''}.`;
    const facts = [
        ['Length', clock(data.seconds)],
        ['Format', `${data.sampleRate / 1000} kHz, ${data.channels === 1 ? 'mono' : 'stereo'}`],
        ['Speed', `${(data.seconds / data.processingSeconds).toFixed(1)} \u00d7 real time`, 'Length of the song by the time that its separation took'],
        ['Null test', data.nullPeak === 0 ? 'exact' : decibels(data.nullPeak, 'dBFS'), byId('nullTest').textContent],
    ];
    if (data.nonFiniteSamples > 0) facts.push(['Samples that are no numbers', String(data.nonFiniteSamples)]);
    for (const [term, text, title] of facts) {
        const fact = document.createElement('div');
        fact.append(document.createElement('dt'), document.createElement('dd'));
        fact.firstChild.textContent = term;
        fact.lastChild.textContent = text;
        if (title) fact.title = title;
        byId('facts').append(fact);
    }
}

function buildRuler() {
    const steps = [0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 1800, 3600];
    const step = steps.find((candidate) => data.seconds / candidate <= 12) ?? 7200;
    for (let tick = 0; tick * step < data.seconds * 0.96; ++tick) {
        const label = byId('ticks').appendChild(document.createElement('span'));
        label.textContent = clock(tick * step, step < 1 ? 1 : 0);
        label.style.left = `${(100 * tick * step) / data.seconds}%`;
    }
}

function buildPictures(track, description, title) {
    const [waveform, spectrogram] = track.querySelectorAll('img');
    waveform.src = description.waveform;
    waveform.alt = `Waveform of ${title}`;
    spectrogram.src = description.spectrogram;
    spectrogram.alt = `Spectrogram of ${title}`;
    const octaves = Math.log2(data.highestFrequency / data.lowestFrequency);
    for (const [frequency, text] of [[200, '200 Hz'], [1000, '1 kHz'], [5000, '5 kHz']]) {
        if (frequency > data.highestFrequency * 0.8) continue;
        const label = track.querySelector('.spectrum').appendChild(document.createElement('span'));
        label.textContent = text;
        label.style.top = `${100 * (1 - Math.log2(frequency / data.lowestFrequency) / octaves)}%`;
    }
    bindPictures(track.querySelector('.pictures'));
}

function buildTrack(description, title) {
    const track = byId('track').content.firstElementChild.cloneNode(true);
    track.style.setProperty('--color', description.color);
    track.querySelector('h2').textContent = title;
    track.querySelector('.note').textContent =
        description.peak === 0
            ? 'silent'
            : `peak ${decibels(description.peak, '')}, RMS ${decibels(description.rms, 'dBFS')}`;
    buildPictures(track, description, title);
    byId('tracks').append(track);
    tracks.push(track);
    return track;
}

function buildSong() {
    const track = buildTrack(data.song, 'Song');
    track.setAttribute('aria-label', 'Song');
    track.querySelector('.controls').remove();
    track.querySelector('.note').prepend('the input, for comparison', document.createElement('br'));
}

/** @returns {HTMLAudioElement} the stem's player */
function buildStem(stem, index) {
    const title = titleOf(stem.name);
    const track = buildTrack(stem, title);
    track.setAttribute('aria-label', title);
    track.querySelector('.key').textContent = index + 1;
    const [mute, solo, gain] = track.querySelector('.controls').children;
    mute.setAttribute('aria-label', `Mute ${title}`);
    mute.title = `Mute (${index + 1})`;
    mute.addEventListener('click', () => mixer.toggle(index, 'muted'));
    solo.setAttribute('aria-label', `Solo ${title}`);
    solo.title = `Solo (Shift ${index + 1})`;
    solo.addEventListener('click', () => mixer.toggle(index, 'solo'));
    gain.setAttribute('aria-label', `Volume of ${title}`);
    gain.addEventListener('input', () => mixer.set(index, { volume: Number(gain.value) }));
    const link = document.createElement('a');
    link.href = encodeURIComponent(`${stem.name}.wav`);
    link.textContent = `${stem.name}.wav`;
    track.querySelector('.note').append(document.createElement('br'), link);
    const audio = track.appendChild(document.createElement('audio'));
    audio.preload = 'auto';
    audio.src = link.getAttribute('href');
    return audio;
}

buildFacts();
buildRuler();
buildSong();
const stemAudio = data.stems.map(buildStem);
const player = new StemPlayer(stemAudio, data.seconds);

/* --- What is shown --- */

function showMixer() {
    data.stems.forEach((stem, index) => {
        const settings = mixer.stems[index];
        const track = tracks[index + 1];
        const [mute, solo, gain] = track.querySelector('.controls').children;
        mute.setAttribute('aria-pressed', settings.muted);
        solo.setAttribute('aria-pressed', settings.solo);
        gain.value = settings.volume;
        gain.setAttribute('aria-valuetext', decibels(Mixer.factor(settings.volume)));
        gain.title = decibels(Mixer.factor(settings.volume));
        track.classList.toggle('unheard', !mixer.isHeard(index));
        stemAudio[index].volume = mixer.gain(index);
    });
    byId('volume').value = mixer.volume;
    byId('volume').setAttribute('aria-valuetext', decibels(Mixer.factor(mixer.volume)));
}

let isDragging = false; // the position's knob: it is the user's then

function showTime() {
    const time = player.time;
    byId('time').textContent = clock(time);
    if (!isDragging) byId('position').value = time;
    byId('position').setAttribute('aria-valuetext', `${clock(time)} of ${clock(data.seconds)}`);
    for (const track of tracks) track.querySelector('.playhead').style.left = `${(100 * time) / data.seconds}%`;
}

function showPlayer() {
    byId('play').classList.toggle('playing', player.playing);
    byId('play').setAttribute('aria-label', player.playing ? 'Pause' : 'Play');
    byId('play').disabled = player.elements.length === 0;
    const { on, start, end } = player.loop;
    const isPart = start > 0 || end < data.seconds;
    byId('loop').setAttribute('aria-pressed', on);
    byId('loopText').textContent =
        on || isPart ? `Loop ${on ? '' : '(off) '}${clock(start)} \u2013 ${clock(end)}` : '';
    for (const track of tracks) {
        const region = track.querySelector('.region');
        region.hidden = !isPart;
        region.classList.toggle('off', !on);
        region.style.left = `${(100 * start) / data.seconds}%`;
        region.style.width = `${(100 * (end - start)) / data.seconds}%`;
    }
    showTime();
}

function animate() {
    if (player.playing) showTime();
    requestAnimationFrame(animate);
}

const failed = [];
player.addEventListener('failure', (event) => {
    failed.push(decodeURIComponent(event.detail));
    byId('failure').textContent =
        `Not playable: ${failed.join(', ')}. Do the files lie beside this page, and does this browser play WAV files of 32-bit float samples?`;
    byId('failure').hidden = false;
});
player.addEventListener('change', showPlayer);
mixer.addEventListener('change', showMixer);

/* --- Mouse and touch --- */

function setLoopRegion(from, to, on = true) {
    const [start, end] = [Math.min(from, to), Math.max(from, to)];
    const shortest = Math.min(0.1, data.seconds);
    player.setLoop({ on, start: Math.min(start, data.seconds - shortest), end: Math.max(end, start + shortest) });
}

function bindPictures(pictures) {
    const clickWidth = 5; // pixels, up to which it is no drag
    let from = null;
    const timeAt = (event) => {
        const { left, width } = pictures.getBoundingClientRect();
        return data.seconds * Math.min(Math.max((event.clientX - left) / width, 0), 1);
    };
    const isDrag = (event) => from !== null && Math.abs(event.clientX - from.x) > clickWidth;
    pictures.addEventListener('pointerdown', (event) => {
        if (event.button !== 0) return;
        from = { x: event.clientX, time: timeAt(event) };
        pictures.setPointerCapture(event.pointerId);
    });
    pictures.addEventListener('pointermove', (event) => {
        if (isDrag(event)) setLoopRegion(from.time, timeAt(event), false);
    });
    pictures.addEventListener('pointerup', (event) => {
        if (from === null) return;
        if (isDrag(event)) {
            setLoopRegion(from.time, timeAt(event));
            player.moveTo(player.loop.start);
        } else goTo(timeAt(event));
        from = null;
    });
    pictures.addEventListener('pointercancel', () => (from = null));
}

/** Goes to a time; outside of the loop region the loop ends. */
function goTo(time) {
    const { on, start, end } = player.loop;
    if (on && (time < start || time >= end)) player.loop = { on: false, start, end };
    player.moveTo(time);
}

const toggleLoop = () => player.setLoop({ ...player.loop, on: !player.loop.on });
const forgetLoop = () => player.setLoop({ on: false, start: 0, end: data.seconds });
const loopFromHere = () => setLoopRegion(player.time, player.loop.end > player.time ? player.loop.end : data.seconds);
const loopUpToHere = () => setLoopRegion(player.loop.start < player.time ? player.loop.start : 0, player.time);

function setView(view) {
    document.body.dataset.view = view;
    for (const button of document.querySelectorAll('.view'))
        button.setAttribute('aria-pressed', button.dataset.view === view);
}

function nextView() {
    const views = [...document.querySelectorAll('.view')].map((button) => button.dataset.view);
    setView(views[(views.indexOf(document.body.dataset.view) + 1) % views.length]);
}

function toggleTheme() {
    const root = document.documentElement;
    const isDark = root.dataset.theme ? root.dataset.theme === 'dark' : matchMedia('(prefers-color-scheme: dark)').matches;
    root.dataset.theme = isDark ? 'light' : 'dark';
}

const clicks = {
    play: () => player.toggle(),
    toStart: () => goTo(0),
    loop: toggleLoop,
    loopStart: loopFromHere,
    loopEnd: loopUpToHere,
    reset: () => mixer.reset(),
    theme: toggleTheme,
    showHelp: () => byId('help').showModal(),
};
for (const [id, action] of Object.entries(clicks)) byId(id).addEventListener('click', action);
for (const button of document.querySelectorAll('.view'))
    button.addEventListener('click', () => setView(button.dataset.view));
byId('volume').addEventListener('input', () => mixer.setVolume(Number(byId('volume').value)));
byId('position').addEventListener('input', () => {
    isDragging = true;
    goTo(Number(byId('position').value));
});
byId('position').addEventListener('change', () => (isDragging = false));

/* After the mouse has been used, keys are for the player and not for what was clicked last. */
document.addEventListener('click', (event) => {
    const isByMouse = event.detail > 0;
    if (isByMouse) event.target.closest('button, input')?.blur();
});

/* --- Keyboard --- */

const keys = {
    Space: () => player.toggle(),
    ArrowLeft: (event) => goTo(player.time - (event.shiftKey ? 1 : 5)),
    ArrowRight: (event) => goTo(player.time + (event.shiftKey ? 1 : 5)),
    ArrowUp: () => mixer.setVolume(mixer.volume + 5),
    ArrowDown: () => mixer.setVolume(mixer.volume - 5),
    Home: () => goTo(0),
    End: () => goTo(data.seconds),
    Escape: forgetLoop,
    l: toggleLoop,
    i: loopFromHere,
    '[': loopFromHere,
    o: loopUpToHere,
    ']': loopUpToHere,
    v: nextView,
    '?': () => byId('help').showModal(),
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
    const control = event.target.closest('button, a, input');
    const itsOwn = control?.matches('input') ? /^(Arrow|Home|End|Page)/ : /^(Space|Enter)$/;
    if (control && itsOwn.test(event.code)) return; // a focused control keeps the keys that work it
    const action = actionOf(event);
    if (!action || (event.repeat && !event.key.startsWith('Arrow'))) return;
    event.preventDefault();
    action(event);
});

setView('both');
showMixer();
showPlayer();
requestAnimationFrame(animate);
