// SPDX-License-Identifier: MIT
/*
 * The switches and volumes of the stems. A stem that is soloed is heard even if it is muted, and while any is soloed
 * the others are not.
 *
 * Event: "change".
 */
class Mixer extends EventTarget {
    /** @param {boolean[]} mutedAtFirst one per stem */
    constructor(mutedAtFirst) {
        super();
        this.mutedAtFirst = mutedAtFirst;
        this.reset();
    }

    reset() {
        this.volume = 100;
        this.stems = this.mutedAtFirst.map((muted) => ({ muted, solo: false, volume: 100 }));
        this.changed();
    }

    /** Changes settings of a stem: muted, solo or volume (0 to 100). */
    set(index, settings) {
        if (!this.stems[index]) return;
        Object.assign(this.stems[index], settings);
        this.changed();
    }

    toggle(index, setting) {
        if (this.stems[index]) this.set(index, { [setting]: !this.stems[index][setting] });
    }

    setVolume(volume) {
        this.volume = Math.min(Math.max(volume, 0), 100);
        this.changed();
    }

    isHeard(index) {
        const { muted, solo } = this.stems[index];
        return this.stems.some((stem) => stem.solo) ? solo : !muted;
    }

    /** The factor for a stem's samples. */
    gain(index) {
        return this.isHeard(index) ? Mixer.factor(this.volume) * Mixer.factor(this.stems[index].volume) : 0;
    }

    /** The factor of a slider: squared, so that its way matches loudness better. */
    static factor(slider) {
        return (slider / 100) ** 2;
    }

    changed() {
        this.dispatchEvent(new Event('change'));
    }
}
