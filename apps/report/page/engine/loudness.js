// SPDX-License-Identifier: MIT
/* The loudness of the last seconds of a stereo sound: its power under the weighting of ITU-R BS.1770. */
class RecentPower {
    static seconds = 5; // after which a sound counts for 1 / e

    constructor(sampleRate) {
        this.stages = [RecentPower.shelf(sampleRate), RecentPower.highPass(sampleRate)];
        this.state = new Float64Array(8); // two values for each stage and channel
        this.filtered = [new Float64Array(0), new Float64Array(0)];
        this.decay = Math.exp(-1 / (RecentPower.seconds * sampleRate));
        this.value = 0;
    }

    static shelf(sampleRate) {
        const gain = 10 ** (3.999843853973347 / 20);
        const edge = gain ** 0.4996667741545416;
        const k = Math.tan((Math.PI * 1681.974450955533) / sampleRate);
        const damping = k / 0.7071752369554196;
        const norm = 1 + damping + k * k;
        return [(gain + edge * damping + k * k) / norm, (2 * (k * k - gain)) / norm,
            (gain - edge * damping + k * k) / norm, (2 * (k * k - 1)) / norm, (1 - damping + k * k) / norm];
    }

    static highPass(sampleRate) {
        const k = Math.tan((Math.PI * 38.13547087602444) / sampleRate);
        const damping = k / 0.5003270373238773;
        const norm = 1 + damping + k * k;
        return [1, -2, 1, (2 * (k * k - 1)) / norm, (1 - damping + k * k) / norm];
    }

    /** Takes the next samples, those from a place on. */
    feed(left, right, from) {
        const { decay } = this;
        this.filter(left, 0, from);
        this.filter(right, 1, from);
        let { value } = this;
        for (let index = from; index < left.length; ++index) {
            const power = this.filtered[0][index] ** 2 + this.filtered[1][index] ** 2;
            value = decay * value + (1 - decay) * power;
        }
        this.value = value;
    }

    filter(samples, channel, from) {
        if (this.filtered[channel].length < samples.length) this.filtered[channel] = new Float64Array(samples.length);
        const results = this.filtered[channel];
        results.set(samples);
        for (const [stage, [b0, b1, b2, a1, a2]] of this.stages.entries()) {
            const place = 4 * stage + 2 * channel;
            let [first, second] = this.state.subarray(place, place + 2);
            for (let index = from; index < samples.length; ++index) {
                const value = results[index];
                const result = b0 * value + first;
                first = b1 * value - a1 * result + second;
                second = b2 * value - a2 * result;
                results[index] = result;
            }
            if (Math.abs(first) < 1e-30) first = second = 0; // numbers this small are slow
            this.state[place] = first;
            this.state[place + 1] = second;
        }
    }
}
