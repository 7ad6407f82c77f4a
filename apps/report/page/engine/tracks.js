// SPDX-License-Identifier: MIT
/*
 * The samples of all tracks as far as they have been loaded, in segments of equal length, and where the sound goes on
 * after a sample: at a loop's end with the loop's start.
 *
 * @typedef {{scale: number, channels: Int16Array[]} | null} Part  16-bit samples of a track in a segment and what 1 of
 *     their full scale stands for; null is silence
 */
class TrackSamples {
    static longestJoin = 128;

    /** @param {{frames: number, segmentFrames: number, sampleRate: number, tracks: number}} song */
    constructor(song) {
        this.song = song;
        this.segments = new Map(); // index: a Part per track
        this.loop = { on: false, start: 0, end: song.frames };
        this.origin = { time: 0, frame: 0 }; // where playing started: a time that only grows, and the song's sample
        this.parts = [new Float32Array(0), new Float32Array(0)];
    }

    put(index, parts) {
        this.segments.set(index, parts);
    }

    keepOnly(indices) {
        for (const index of this.segments.keys()) if (!indices.includes(index)) this.segments.delete(index);
    }

    startAt(time, frame) {
        this.origin = { time, frame };
    }

    /** The song's sample at a time. */
    frameAt(time) {
        const frame = this.origin.frame + time - this.origin.time;
        const { on, start, end } = this.loop;
        if (!on || this.origin.frame >= end || frame < end) return frame;
        return start + ((frame - end) % (end - start));
    }

    /** How far the sound goes on from a sample of the song before its segment, the loop or the song ends. */
    runFrom(frame) {
        const { segmentFrames, frames } = this.song;
        if (frame < 0) return -frame;
        if (frame >= frames) return Infinity;
        const ends = [(Math.floor(frame / segmentFrames) + 1) * segmentFrames, frames];
        if (this.isBeforeLoopEnd(frame)) {
            const join = this.loop.end - this.joinFrames;
            ends.push(frame < join ? join : this.loop.end);
        }
        return Math.min(...ends) - frame;
    }

    isBeforeLoopEnd(frame) {
        return this.loop.on && this.origin.frame < this.loop.end && frame < this.loop.end;
    }

    /** So many samples before its end a loop begins to go over into what stands before its start, lest it click. */
    get joinFrames() {
        const { start, end } = this.loop;
        return Math.min(TrackSamples.longestJoin, start, end - start);
    }

    /** Whether everything between two times has been loaded. */
    has(from, to) {
        for (let time = from; time < to;) {
            const frame = this.frameAt(time);
            const isOutside = frame < 0 || frame >= this.song.frames;
            if (!isOutside && !this.segments.has(Math.floor(frame / this.song.segmentFrames))) return false;
            time += Math.max(this.runFrom(frame), 1);
        }
        return true;
    }

    /** Adds a track from a time on to left and right; its gain goes evenly from one value to another. */
    add(track, time, left, right, gainFrom, gainTo) {
        if (gainFrom === 0 && gainTo === 0) return;
        const slope = (gainTo - gainFrom) / left.length;
        for (let place = 0; place < left.length;) {
            const frame = this.frameAt(time + place);
            const count = Math.min(this.runFrom(frame), left.length - place);
            const gain = gainFrom + slope * place;
            const joined = this.isBeforeLoopEnd(frame) ? frame - (this.loop.end - this.joinFrames) : -1;
            if (joined < 0) this.addRun(track, frame, count, left, right, place, gain, slope);
            else this.addJoin(track, frame, count, left, right, place, gain, joined);
            place += count;
        }
    }

    /** Adds samples in front of a loop's end, of which `joined` have gone over. */
    addJoin(track, frame, count, left, right, place, gain, joined) {
        const step = gain / (this.joinFrames + 1);
        const over = (joined + 1) * step;
        const before = frame - (this.loop.end - this.loop.start);
        this.addRun(track, frame, count, left, right, place, gain - over, -step);
        for (let done = 0; done < count;) {
            const run = Math.min(this.runFrom(before + done), count - done);
            this.addRun(track, before + done, run, left, right, place + done, over + done * step, step);
            done += run;
        }
    }

    addRun(track, frame, count, left, right, place, gain, slope) {
        if (frame < 0 || frame >= this.song.frames) return;
        const part = this.segments.get(Math.floor(frame / this.song.segmentFrames))?.[track];
        if (!part) return;
        const [from, other] = [part.channels[0], part.channels[1] ?? part.channels[0]];
        const first = frame % this.song.segmentFrames;
        let factor = (gain * part.scale) / 32768;
        const step = (slope * part.scale) / 32768;
        for (let index = 0; index < count; ++index) {
            left[place + index] += factor * from[first + index];
            right[place + index] += factor * other[first + index];
            factor += step;
        }
    }
}
