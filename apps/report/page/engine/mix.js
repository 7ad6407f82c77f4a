// SPDX-License-Identifier: MIT
/*
 * Mixes the tracks of a song as the settings say, block by block: in the audio thread to be heard, and in the page to
 * be saved. All tracks are read at one sample of one clock, so they cannot come apart, and a loop's end is followed by
 * its start at the next sample.
 *
 * Track 0 is the original; it is heard instead of the others on request, then as loud as these have been of late.
 */
class MixEngine {
    static ramp = 256; // samples, in which the sound fades where it would jump
    static gainStep = 0.3; // part of the way to its aim that a gain goes in a block
    static largestMatch = 4; // 12 dB

    constructor(song) {
        this.song = song;
        this.samples = new TrackSamples(song);
        this.settings = { playing: false, gains: Array(song.tracks).fill(0), original: false, volume: 1, speed: 1,
            semitones: 0 };
        this.tempo = { speed: 1, semitones: 0 }; // as it is; the settings' takes effect at the next start
        this.gains = Array(song.tracks).fill(0);
        this.originalPart = 0; // 0 to 1: how much of the original is heard
        this.time = 0; // of the next sample, counted from the first one that was played
        this.frame = 0; // where the song stands while nothing plays
        this.level = 0; // 0 to 1: how far the sound has faded in
        this.jump = null; // where to go once it has faded out
        this.measuredTo = 0; // the time up to which loudness has been measured
        this.mixPower = new RecentPower(song.sampleRate);
        this.originalPower = new RecentPower(song.sampleRate);
        this.scratch = [];
        this.stretcher = new Stretcher(song.sampleRate, (...range) => this.readAll(...range, false));
        this.changer = new RateChanger((left, right) => this.stretcher.pull(left, right));
        this.waiting = false;
        this.peak = 0;
    }

    get isStretching() {
        return this.tempo.speed !== 1 || this.tempo.semitones !== 0;
    }

    get isHeard() {
        return this.settings.playing || this.level > 0;
    }

    /** The song's sample that is to be heard next. */
    get position() {
        const frame = this.jump ?? (this.isHeard ? this.samples.frameAt(this.time) : this.frame);
        return Math.min(frame, this.song.frames);
    }

    /** Changes some of the settings, or the loop: {on, start, end} in samples. */
    set({ loop, ...changes }) {
        if (loop) this.setLoop(loop);
        const starts = changes.playing && !this.isHeard;
        Object.assign(this.settings, changes);
        const { speed, semitones } = this.settings;
        if (starts) this.startAt(this.position);
        else if (speed !== this.tempo.speed || semitones !== this.tempo.semitones) this.seek(this.position);
    }

    setLoop(loop) {
        const time = Math.floor(this.time);
        const frame = this.samples.frameAt(time);
        this.samples.loop = loop;
        this.samples.startAt(time, frame);
    }

    /** Goes to a sample of the song: at once if nothing is heard, else after a short fade. */
    seek(frame) {
        if (this.level > 0) this.jump = frame;
        else this.startAt(frame);
    }

    /** Starts from silence, and so with the gains as they are to be. */
    startAt(frame) {
        this.jump = null;
        this.gains = [...this.settings.gains];
        this.originalPart = this.settings.original ? 1 : 0;
        this.rest(frame);
        this.tempo = { speed: this.settings.speed, semitones: this.settings.semitones };
        if (!this.isStretching) return;
        const pitch = 2 ** (this.tempo.semitones / 12);
        this.changer.start(pitch);
        this.stretcher.start(this.time, this.tempo.speed / pitch);
    }

    /** Stands at a sample of the song. */
    rest(frame) {
        this.frame = Math.min(Math.round(frame), this.song.frames);
        this.time = Math.ceil(this.time);
        this.samples.startAt(this.time, this.frame);
    }

    /** Fills a block. */
    process(left, right) {
        left.fill(0);
        right.fill(0);
        if (!this.isHeard) return;
        this.waiting = !this.fill(left, right);
        const goesOn = this.settings.playing && this.jump === null;
        if (this.waiting) this.level = 0; // it fades in again
        else this.fade(left, right, goesOn ? 1 : -1);
        if (this.level === 0 && !goesOn) this.land();
        const isLooping = this.samples.loop.on && this.samples.origin.frame < this.samples.loop.end;
        if (goesOn && !isLooping && this.samples.frameAt(this.time) >= this.song.frames) this.end();
    }

    /** After the sound has faded out: goes on somewhere else, or rests. */
    land() {
        if (this.jump !== null) this.startAt(this.jump);
        else this.rest(this.samples.frameAt(this.time));
    }

    end() {
        this.settings.playing = false;
        this.level = 0;
        this.rest(this.song.frames);
    }

    fade(left, right, direction) {
        const step = direction / MixEngine.ramp;
        for (let index = 0; index < left.length; ++index) {
            left[index] *= this.level;
            right[index] *= this.level;
            this.level = Math.min(Math.max(this.level + step, 0), 1);
            this.peak = Math.max(this.peak, Math.abs(left[index]), Math.abs(right[index]));
        }
    }

    /** Fills a block with what comes next; false if that has not been loaded yet. */
    fill(left, right) {
        if (!this.isStretching) {
            if (!this.readAll(this.time, left, right, true)) return false;
            this.time += left.length;
            return true;
        }
        // What is missing then is heard as a gap.
        const filled = this.changer.fill(left, right);
        this.time += filled * this.tempo.speed;
        return filled > 0;
    }

    /**
     * Mixes the tracks from a time on.
     * @param {boolean} isSmooth whether gains change within the block. The stretcher's blocks overlap, and so change
     *     smoothly by themselves
     */
    readAll(time, left, right, isSmooth) {
        const first = Math.round(time);
        const count = left.length;
        if (!this.samples.has(first, first + count)) return false;
        if (this.scratch[0]?.length !== count) this.scratch = [new Float32Array(count), new Float32Array(count)];
        const [originalLeft, originalRight] = this.scratch;
        for (const block of [left, right, originalLeft, originalRight]) block.fill(0);
        this.samples.add(0, first, originalLeft, originalRight, 1, 1);
        for (let track = 1; track < this.song.tracks; ++track) {
            const from = this.gains[track];
            this.gains[track] = MixEngine.towards(from, this.settings.gains[track], isSmooth);
            this.samples.add(track, first, left, right, isSmooth ? from : this.gains[track], this.gains[track]);
        }
        this.measure(first, left, right);
        this.chooseAndScale(left, right, isSmooth);
        return true;
    }

    measure(first, left, right) {
        const from = this.measuredTo - first;
        if (from >= left.length) return;
        this.mixPower.feed(left, right, Math.max(from, 0));
        this.originalPower.feed(...this.scratch, Math.max(from, 0));
        this.measuredTo = first + left.length;
    }

    /** The original's gain that makes it as loud as the mix. */
    get match() {
        if (this.originalPower.value < 1e-9) return 1;
        const gain = Math.sqrt(this.mixPower.value / this.originalPower.value);
        return Math.min(Math.max(gain, 1 / MixEngine.largestMatch), MixEngine.largestMatch);
    }

    chooseAndScale(left, right, isSmooth) {
        const { volume, original } = this.settings;
        const from = this.originalPart;
        const to = (this.originalPart = MixEngine.towards(from, original ? 1 : 0, isSmooth));
        if (from === 0 && to === 0 && volume === 1) return;
        const match = this.match;
        for (let index = 0; index < left.length; ++index) {
            const part = from + ((to - from) * index) / left.length;
            left[index] = volume * (left[index] + part * (match * this.scratch[0][index] - left[index]));
            right[index] = volume * (right[index] + part * (match * this.scratch[1][index] - right[index]));
        }
    }

    static towards(from, aim, isSmooth) {
        if (!isSmooth || Math.abs(aim - from) < 1e-4) return aim;
        return from + MixEngine.gainStep * (aim - from);
    }
}
