// SPDX-License-Identifier: MIT
/* Complex Fourier transforms of one size, a power of two, in place (radix 2, decimation in time). */
class Fft {
    constructor(size) {
        this.size = size;
        this.cosines = Float64Array.from({ length: size / 2 }, (_, index) => Math.cos((2 * Math.PI * index) / size));
        this.sines = Float64Array.from({ length: size / 2 }, (_, index) => Math.sin((2 * Math.PI * index) / size));
        this.reversed = new Uint32Array(size);
        for (let index = 1; index < size; ++index)
            this.reversed[index] = (this.reversed[index >> 1] >> 1) | (index & 1 ? size >> 1 : 0);
    }

    /** The transform without a scale. With real and imaginary part exchanged it is the inverse one. */
    forward(real, imaginary) {
        for (let index = 0; index < this.size; ++index) {
            const other = this.reversed[index];
            if (other <= index) continue;
            this.exchange(real, index, other);
            this.exchange(imaginary, index, other);
        }
        for (let half = 1; half < this.size; half *= 2) this.combine(real, imaginary, half);
    }

    /** Makes transforms of twice the length of those of length `half`. */
    combine(real, imaginary, half) {
        const { cosines, sines, size } = this;
        const stride = size / (2 * half);
        for (let bin = 0; bin < half; ++bin) {
            const cosine = cosines[bin * stride];
            const sine = sines[bin * stride];
            for (let even = bin; even < size; even += 2 * half) {
                const odd = even + half;
                const turnedReal = real[odd] * cosine + imaginary[odd] * sine;
                const turnedImaginary = imaginary[odd] * cosine - real[odd] * sine;
                real[odd] = real[even] - turnedReal;
                imaginary[odd] = imaginary[even] - turnedImaginary;
                real[even] += turnedReal;
                imaginary[even] += turnedImaginary;
            }
        }
    }

    exchange(values, one, other) {
        const value = values[one];
        values[one] = values[other];
        values[other] = value;
    }
}
