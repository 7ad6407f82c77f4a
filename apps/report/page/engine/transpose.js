// SPDX-License-Identifier: MIT
/* Reads stereo sound at another rate by a windowed sinc, and so at another pitch; what would alias is filtered out. */
class RateChanger {
    static zeroCrossings = 16; // on either side
    static stepsPerCrossing = 256;
    static blockFrames = 256;

    /** @param {(left: Float32Array, right: Float32Array) => number} pull gives the next input, and how much there is */
    constructor(pull) {
        this.pull = pull;
        const { zeroCrossings, stepsPerCrossing } = RateChanger;
        this.kernel = Float64Array.from({ length: (zeroCrossings + 1) * stepsPerCrossing + 2 }, (_, index) => {
            const x = index / stepsPerCrossing;
            if (x >= zeroCrossings) return 0;
            const window = Math.cos((Math.PI * x) / (2 * zeroCrossings)) ** 2;
            return x === 0 ? 1 : (window * Math.sin(Math.PI * x)) / (Math.PI * x);
        });
        this.block = [new Float32Array(RateChanger.blockFrames), new Float32Array(RateChanger.blockFrames)];
        this.start(1);
    }

    /** Forgets the past. @param {number} rate input samples per output sample */
    start(rate) {
        this.rate = rate;
        this.cutoff = rate > 1 ? 0.96 / rate : 1;
        this.reach = Math.ceil(RateChanger.zeroCrossings / this.cutoff); // samples on either side that one is made of
        this.history = [new Float32Array(this.reach), new Float32Array(this.reach)];
        this.place = this.reach; // of the next output in the history
    }

    /** Fills left and right; returns up to where. */
    fill(left, right) {
        for (let index = 0; index < left.length; ++index) {
            while (this.place + this.reach + 1 >= this.history[0].length) if (!this.feed()) return index;
            [left[index], right[index]] = this.valuesAt(this.place);
            this.place += this.rate;
        }
        return left.length;
    }

    /** Takes the next block and forgets what is over. */
    feed() {
        const count = this.pull(...this.block);
        if (count === 0) return false;
        const over = Math.max(Math.floor(this.place) - this.reach, 0);
        this.history = this.history.map((history, channel) => {
            const longer = new Float32Array(history.length - over + count);
            longer.set(history.subarray(over));
            longer.set(this.block[channel].subarray(0, count), history.length - over);
            return longer;
        });
        this.place -= over;
        return true;
    }

    valuesAt(place) {
        const { kernel, reach, history: [left, right] } = this;
        const scale = this.cutoff * RateChanger.stepsPerCrossing;
        let [sumLeft, sumRight] = [0, 0];
        for (let index = Math.max(Math.ceil(place - reach), 0); index <= place + reach; ++index) {
            const step = Math.abs(index - place) * scale;
            const lower = Math.floor(step);
            const value = kernel[lower] + (step - lower) * (kernel[lower + 1] - kernel[lower]);
            sumLeft += value * left[index];
            sumRight += value * right[index];
        }
        return [sumLeft * this.cutoff, sumRight * this.cutoff];
    }
}
