// SPDX-License-Identifier: MIT
/*
 * Plays stereo sound faster or slower at its own pitch: a phase vocoder whose phases are locked around the peaks of
 * the spectrum (Laroche and Dolson 1999, "Improved phase vocoder time-scale modification of audio"). How far a phase
 * turns in one hop is measured between two frames of the input that are one hop apart (Puckette 1995, "Phase-locked
 * vocoder"), so nothing is estimated, and at the original speed the output is the input. Both channels turn alike,
 * which keeps every sound in its place.
 */
class Stretcher {
    /**
     * @param {number} sampleRate in Hz
     * @param {(first: number, left: Float32Array, right: Float32Array) => boolean} read fills both with the input
     *     from a sample on, or returns false if it is not there yet
     */
    constructor(sampleRate, read) {
        this.read = read;
        this.hop = 2 ** Math.round(Math.log2(sampleRate / 43));
        this.size = 4 * this.hop;
        this.half = this.size / 2;
        this.fft = new Fft(this.size);
        this.window = Float64Array.from({ length: this.size }, (_, index) =>
            Math.sin((Math.PI * index) / this.size) ** 2);
        this.input = [new Float32Array(this.size + this.hop), new Float32Array(this.size + this.hop)];
        this.real = new Float64Array(this.size);
        this.imaginary = new Float64Array(this.size);
        this.before = this.emptySpectrum(); // of the input, one hop before the present frame
        this.present = this.emptySpectrum();
        this.output = this.emptySpectrum(); // of the frame made last
        this.power = new Float64Array(this.half + 1);
        // Overlapping frames, of which the first hop is complete.
        this.sum = [new Float64Array(this.size), new Float64Array(this.size)];
        this.start(0, 1);
    }

    /** Left and right, each a real and an imaginary part of bins 0 to half. */
    emptySpectrum() {
        return Array.from({ length: 4 }, () => new Float64Array(this.half + 1));
    }

    /** The next output belongs to this sample of the input. */
    start(position, speed) {
        this.speed = speed;
        this.position = position;
        for (const sum of this.sum) sum.fill(0);
        this.isFirst = true;
        this.taken = this.hop; // samples of the present hop that have been given out
        this.frameAt = position - 2 * this.hop * speed;
        this.toSkip = 4 * this.hop; // until all frames that overlap the start have been added
    }

    /** Fills left and right from `from` on. Returns up to where; less than the end if input is missing. */
    pull(left, right, from = 0) {
        let place = from;
        while (place < left.length) {
            if (this.taken === this.hop && !this.makeFrame()) break;
            const skipped = Math.min(this.toSkip, this.hop - this.taken);
            this.toSkip -= skipped;
            this.taken += skipped;
            const count = Math.min(left.length - place, this.hop - this.taken);
            for (let index = 0; index < count; ++index, ++place, ++this.taken) {
                left[place] = this.sum[0][this.taken];
                right[place] = this.sum[1][this.taken];
            }
            this.position += count * this.speed;
        }
        return place;
    }

    makeFrame() {
        const first = Math.round(this.frameAt) - this.half - this.hop;
        if (!this.read(first, this.input[0], this.input[1])) return false;
        this.analyse(0, this.before);
        this.analyse(this.hop, this.present);
        if (this.isFirst) this.output.forEach((part, index) => part.set(this.present[index]));
        else this.turnPhases();
        this.isFirst = false;
        this.addFrame();
        this.frameAt += this.hop * this.speed;
        this.taken = 0;
        return true;
    }

    /** Transforms left and right as real and imaginary part of one signal, and takes them apart by symmetry. */
    analyse(offset, spectrum) {
        for (let index = 0; index < this.size; ++index) {
            this.real[index] = this.window[index] * this.input[0][offset + index];
            this.imaginary[index] = this.window[index] * this.input[1][offset + index];
        }
        this.fft.forward(this.real, this.imaginary);
        for (let bin = 0; bin <= this.half; ++bin) {
            const mirror = (this.size - bin) % this.size;
            spectrum[0][bin] = 0.5 * (this.real[bin] + this.real[mirror]);
            spectrum[1][bin] = 0.5 * (this.imaginary[bin] - this.imaginary[mirror]);
            spectrum[2][bin] = 0.5 * (this.imaginary[bin] + this.imaginary[mirror]);
            spectrum[3][bin] = 0.5 * (this.real[mirror] - this.real[bin]);
        }
    }

    /** Makes the output's spectrum of the present one: around each peak all phases turn as the peak's does. */
    turnPhases() {
        const [leftReal, leftImaginary, rightReal, rightImaginary] = this.present;
        for (let bin = 0; bin <= this.half; ++bin)
            this.power[bin] = leftReal[bin] ** 2 + leftImaginary[bin] ** 2
                + rightReal[bin] ** 2 + rightImaginary[bin] ** 2;
        let begin = 0;
        let peak = this.nextPeak(0);
        while (begin <= this.half) {
            const next = this.nextPeak(peak + 1);
            const end = next > this.half ? this.half + 1 : (peak + next + 1) >> 1;
            this.turnRegion(begin, end, Math.min(peak, this.half));
            begin = end;
            peak = next;
        }
    }

    /** The next bin that is stronger than two on either side, or half + 1. */
    nextPeak(from) {
        const { power, half } = this;
        for (let bin = Math.max(from, 2); bin <= half - 2; ++bin)
            if (power[bin] > power[bin - 1] && power[bin] >= power[bin + 1] && power[bin] > power[bin - 2]
                && power[bin] >= power[bin + 2]) return bin;
        return half + 1;
    }

    turnRegion(begin, end, peak) {
        const { before, present, output } = this;
        let cosine = 0;
        let sine = 0;
        for (const part of [0, 2]) {
            const [realBefore, imaginaryBefore] = [before[part][peak], before[part + 1][peak]];
            const [real, imaginary] = [output[part][peak], output[part + 1][peak]];
            cosine += real * realBefore + imaginary * imaginaryBefore;
            sine += imaginary * realBefore - real * imaginaryBefore;
        }
        const length = Math.hypot(cosine, sine);
        [cosine, sine] = length > 0 ? [cosine / length, sine / length] : [1, 0];
        for (const part of [0, 2])
            for (let bin = begin; bin < end; ++bin) {
                const [real, imaginary] = [present[part][bin], present[part + 1][bin]];
                output[part][bin] = real * cosine - imaginary * sine;
                output[part + 1][bin] = real * sine + imaginary * cosine;
            }
    }

    /** Adds the output's frame to the sum, moved on by one hop. Four squared Hann windows add up to 3 / 2. */
    addFrame() {
        const [leftReal, leftImaginary, rightReal, rightImaginary] = this.output;
        for (let bin = 0; bin <= this.half; ++bin) {
            const mirror = (this.size - bin) % this.size;
            this.real[mirror] = leftReal[bin] + rightImaginary[bin];
            this.imaginary[mirror] = rightReal[bin] - leftImaginary[bin];
            this.real[bin] = leftReal[bin] - rightImaginary[bin];
            this.imaginary[bin] = leftImaginary[bin] + rightReal[bin];
        }
        this.fft.forward(this.imaginary, this.real); // the inverse one
        for (const sum of this.sum) {
            sum.copyWithin(0, this.hop);
            sum.fill(0, this.size - this.hop);
        }
        for (let index = 0; index < this.size; ++index) {
            const factor = this.window[index] / (1.5 * this.size);
            this.sum[0][index] += factor * this.real[index];
            this.sum[1][index] += factor * this.imaginary[index];
        }
    }
}
