// SPDX-License-Identifier: MIT
/*
 * Plays all tracks on one clock: a MixEngine in the audio thread mixes them, and the player sees to it that it has the
 * segments that come next. Its memory does not grow with the song.
 *
 * Events: "change" when the state has changed, "failure" with a sentence as `detail`.
 */
class Player extends EventTarget {
    static cacheBytes = 200e6;
    static segmentsAhead = 2;

    /** @param {{frames: number, segmentFrames: number, sampleRate: number, tracks: number}} song */
    constructor(song, loader) {
        super();
        this.song = song;
        this.loader = loader;
        this.settings = { playing: false };
        this.loop = { on: false, start: 0, end: song.frames };
        this.position = 0; // in samples, as the others
        this.report = { waiting: false, peak: 0, match: 1 };
        this.turn = 0; // of the last move: reports from before it are out of date
        this.held = []; // segments that the audio thread has, the longest unused ones first
        this.isLoading = false;
        this.hasFailed = false; // then nothing more is loaded until the user plays again
        const wantedAtMost = 2 * (Player.segmentsAhead + 1);
        this.capacity = Math.max(Math.floor(Player.cacheBytes / (4 * song.segmentFrames * song.tracks)), wantedAtMost);
    }

    get playing() {
        return this.settings.playing;
    }

    get time() {
        return this.position / this.song.sampleRate;
    }

    /** Tells early if the sound is missing. */
    async check() {
        await this.loader.load(0).catch((error) => this.fail(error));
    }

    /** Browsers let a page make sound once it has been used. */
    async start() {
        if (this.starting) return this.starting;
        this.starting = (async () => {
            const { sampleRate } = this.song;
            this.context = new AudioContext({ sampleRate, latencyHint: 'playback' });
            const code = document.getElementById('engine').textContent;
            // As a data URL, because neither files nor blobs are allowed on a page from the disk.
            await this.context.audioWorklet.addModule(`data:text/javascript,${encodeURIComponent(code)}`);
            this.node = new AudioWorkletNode(this.context, 'stems',
                { numberOfInputs: 0, outputChannelCount: [2], processorOptions: this.song });
            this.node.port.onmessage = ({ data }) => this.take(data);
            this.node.onprocessorerror = () => this.fail(new Error('its audio thread stopped'));
            this.node.connect(this.context.destination);
            this.post({ set: { ...this.settings, loop: this.loop }, seek: this.position });
        })();
        return this.starting;
    }

    post(message) {
        this.node?.port.postMessage({ ...message, turn: this.turn });
    }

    fail(error) {
        this.settings.playing = false;
        const detail = /^player\//.test(error.message)
            ? `The file ${error.message} is missing or damaged. It belongs beside this page.`
            : `This browser cannot play the stems here: ${error.message}.`;
        this.dispatchEvent(new CustomEvent('failure', { detail }));
        this.changed();
    }

    changed() {
        this.dispatchEvent(new Event('change'));
    }

    take(report) {
        if (report.turn !== this.turn) return;
        const stopped = this.playing && !report.playing;
        this.report = report;
        this.position = report.position;
        this.settings.playing = report.playing;
        this.fillWindow();
        if (stopped) this.changed();
    }

    toggle() {
        return this.playing ? this.set({ playing: false }) : this.play();
    }

    async play() {
        const { on, start, end } = this.loop;
        const isOutside = on && (this.position < start || this.position >= end);
        if (isOutside) this.seek(start);
        else if (this.position >= this.song.frames) this.seek(0);
        this.hasFailed = false;
        this.set({ playing: true });
        try {
            await this.start();
            await this.context.resume();
            await this.fillWindow();
        } catch (error) {
            this.fail(error);
        }
    }

    /** Changes settings of the engine. */
    set(changes) {
        ++this.turn;
        Object.assign(this.settings, changes);
        this.post({ set: changes });
        this.changed();
    }

    setLoop(loop) {
        const rounded = { on: loop.on, start: Math.round(loop.start), end: Math.round(loop.end) };
        ++this.turn;
        this.loop = rounded;
        this.post({ set: { loop: rounded } });
        this.fillWindow();
        this.changed();
    }

    /** Goes to a sample of the song and plays on from there if it was playing. */
    seek(frame) {
        ++this.turn;
        this.position = Math.min(Math.max(Math.round(frame), 0), this.song.frames);
        this.post({ seek: this.position });
        this.fillWindow();
        this.changed();
    }

    /** The segments that are heard next, and those that a loop goes back to. */
    wanted() {
        const { frames, segmentFrames } = this.song;
        const { on, start, end } = this.loop;
        const until = on && this.position < end ? end : frames;
        const ahead = (from, to) => {
            const first = Math.floor(Math.min(from, frames - 1) / segmentFrames);
            const last = Math.floor((Math.max(Math.min(to, frames), 1) - 1) / segmentFrames);
            const count = Math.min(Math.max(last - first, 0), Player.segmentsAhead) + 1;
            return Array.from({ length: count }, (_, index) => first + index);
        };
        const back = on ? ahead(Math.max(start - TrackSamples.longestJoin, 0), end) : [];
        return [...new Set([...ahead(this.position, until), ...back])];
    }

    async fillWindow() {
        if (this.isLoading || this.hasFailed || !this.node) return;
        this.isLoading = true;
        try {
            for (;;) {
                const wanted = this.wanted();
                const index = wanted.find((candidate) => !this.held.includes(candidate));
                if (index === undefined) break;
                const parts = await this.loader.load(index);
                this.hold(index, parts);
            }
        } catch (error) {
            this.hasFailed = true;
            this.set({ playing: false });
            this.fail(error);
        } finally {
            this.isLoading = false;
        }
    }

    hold(index, parts) {
        const wanted = this.wanted();
        const others = this.held.filter((held) => !wanted.includes(held));
        const kept = this.held.filter((held) => wanted.includes(held));
        this.held = [...others, ...kept, index].slice(-this.capacity);
        const buffers = parts.flatMap((part) => part?.channels.map((channel) => channel.buffer) ?? []);
        this.node.port.postMessage({ keep: this.held });
        this.node.port.postMessage({ put: { index, parts } }, buffers);
    }
}
