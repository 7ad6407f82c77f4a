// SPDX-License-Identifier: MIT
/* Puts the page together: player, mixer and pictures, what is shown of them, and what is remembered. */

buildFacts();
const song = { frames: data.frames, segmentFrames: data.segmentFrames, sampleRate: data.sampleRate,
    tracks: data.stems.length + 1, channels: data.channels };
const store = new Store(data.id);
const everywhere = new Store('pages');
const loader = new SegmentLoader();
const player = new Player(song, loader);
const mixer = new Mixer(data.stems.map((stem) => stem.name), data.mixes);
const view = new View(data.seconds);
const channels = new Channels(data, mixer, view);
const markers = new Markers((time, next) => {
    if (next !== null) timeline.setLoop(time, Math.min(next, data.seconds));
    timeline.goTo(time);
});
const timeline = new Timeline(player, view, channels, markers);
const tempo = { speed: 1, semitones: 0 };
let isOriginal = false;
let saving = null; // while a mix is being saved: {stopped}

/* --- From the settings to the engine --- */

function engineSettings() {
    return { gains: [0, ...data.stems.map((_, index) => mixer.gain(index))], original: isOriginal,
        volume: Mixer.factor(mixer.volume), ...tempo };
}

function applySettings() {
    player.set(engineSettings());
    showSettings();
    store.put({ stems: mixer.stems, tempo });
    everywhere.put({ volume: mixer.volume });
}

function setTempo(changes) {
    tempo.speed = Math.min(Math.max(Math.round(20 * (changes.speed ?? tempo.speed)) / 20, 0.25), 1.5);
    tempo.semitones = Math.min(Math.max(changes.semitones ?? tempo.semitones, -12), 12);
    applySettings();
}

function toggleOriginal() {
    isOriginal = !isOriginal;
    applySettings();
}

/* --- What is shown --- */

function showSettings() {
    Channels.showLevel(byId('volume'), byId('volumeText'), mixer.volume);
    byId('original').setAttribute('aria-pressed', isOriginal);
    document.body.classList.toggle('original', isOriginal);
    byId('preset').value = mixer.preset;
    byId('speed').textContent = `${Math.round(100 * tempo.speed)} %`;
    byId('key').textContent = `Key ${tempo.semitones > 0 ? '+' : ''}${number(tempo.semitones, 0)}`;
}

function buildPresets() {
    const titles = mixer.presets.map(({ title }, index) => new Option(title, index));
    const own = new Option('Own mix', -1);
    own.disabled = true;
    byId('preset').append(...titles, own);
    byId('preset').addEventListener('change', () => {
        isOriginal = false;
        mixer.use(Number(byId('preset').value));
    });
}

function showPlayer() {
    byId('play').classList.toggle('playing', player.playing);
    byId('play').setAttribute('aria-label', player.playing ? 'Pause' : 'Play');
    byId('loop').setAttribute('aria-pressed', player.loop.on);
    timeline.showLoop();
    store.put({ loop: player.loop });
}

function showTime() {
    const { time } = player;
    byId('time').textContent = clock(time);
    byId('mini').setAttribute('aria-valuenow', time.toFixed(1));
    byId('mini').setAttribute('aria-valuemax', data.seconds.toFixed(1));
    byId('mini').setAttribute('aria-valuetext', `${clock(time)} of ${clock(data.seconds)}`);
    byId('volumeText').classList.toggle('clips', player.playing && player.report.peak > 1);
    timeline.show();
}

function animate() {
    showTime();
    requestAnimationFrame(animate);
}

function setView(kind) {
    document.body.dataset.view = kind;
    byId('view').setAttribute('aria-pressed', kind === 'spectrogram');
    everywhere.put({ view: kind });
    timeline.redraw();
}

function setScale(isOn) {
    channels.scalesQuiet = isOn;
    byId('scale').setAttribute('aria-pressed', isOn);
    everywhere.put({ scalesQuiet: isOn });
    timeline.redraw();
}

function setTheme(theme) {
    if (theme) document.documentElement.dataset.theme = theme;
    everywhere.put({ theme });
    timeline.redraw();
}

function toggleTheme() {
    const { theme } = document.documentElement.dataset;
    const isDark = theme ? theme === 'dark' : matchMedia('(prefers-color-scheme: dark)').matches;
    setTheme(isDark ? 'light' : 'dark');
}

function toggleFacts() {
    byId('drawer').hidden = !byId('drawer').hidden;
    byId('showFacts').setAttribute('aria-expanded', !byId('drawer').hidden);
}

/* --- Saving --- */

async function saveMix() {
    if (saving) return void (saving.stopped = true);
    const task = (saving = { stopped: false });
    const isLoop = player.loop.on;
    const region = isLoop ? player.loop : { start: 0, end: song.frames };
    byId('save').textContent = 'Stop';
    try {
        const saver = new MixSaver(song, loader, (fraction) => {
            byId('status').textContent = `Saving the mix: ${Math.round(100 * fraction)} %`;
            return !task.stopped;
        });
        const result = await saver.save(engineSettings(), region);
        byId('status').textContent = result ? offer(result, isLoop) : 'Nothing was saved.';
    } catch (error) {
        byId('status').textContent = `The mix cannot be saved: ${error.message}.`;
    }
    byId('save').textContent = 'Save mix';
    saving = null;
}

/** Hands a file to the user, and says what is in it. */
function offer({ file, lowered }, isLoop) {
    const title = isOriginal ? 'original' : mixer.presets[mixer.preset]?.title ?? 'mix';
    const name = `${data.name.replace(/\.[^.]*$/, '')} (${title}${isLoop ? ', loop' : ''}).wav`;
    const link = document.createElement('a');
    link.href = URL.createObjectURL(file);
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
    return `Saved ${isLoop ? 'the loop' : 'the song'} as \u201c${name}\u201d.`
        + (lowered < 1 ? ` It would have clipped and was lowered by ${number(-20 * Math.log10(lowered), 1)} dB.` : '');
}

/* --- What was remembered --- */

function restore() {
    const { stems, tempo: lastTempo, loop, markers: places } = store.values;
    const { volume, view: kind, scalesQuiet, theme } = everywhere.values;
    if (Array.isArray(stems) && stems.length === data.stems.length)
        stems.forEach((settings, index) => Object.assign(mixer.stems[index], settings));
    if (Array.isArray(places)) markers.replace(places);
    Object.assign(tempo, lastTempo);
    mixer.volume = volume ?? 0;
    setTheme(theme);
    setView(kind === 'spectrogram' ? kind : 'waveform');
    setScale(scalesQuiet ?? true);
    channels.showMixer();
    applySettings();
    if (loop && loop.end <= song.frames && loop.start < loop.end) player.setLoop(loop);
}
