// SPDX-License-Identifier: MIT
/*
 * The channels' switches and levels in dB. A stem that is soloed is heard even if it is muted, and while any is soloed
 * the others are not.
 *
 * Event: "change".
 */
class Mixer extends EventTarget {
    static lowest = -48; // dB; a fader there is closed
    static highest = 12;

    /**
     * @param {string[]} names of the stems
     * @param {{name: string, levels: Object<string, number | null>}[]} mixes that were made with the stems
     */
    constructor(names, mixes) {
        super();
        this.names = names;
        this.presets = Mixer.presetsFor(names, mixes);
        this.volume = 0;
        this.reset();
    }

    /** Settings for every stem, by a title. The mix would double the stems. */
    static presetsFor(names, mixes) {
        const isPart = (name) => name !== 'mix' || names.length === 1;
        const without = (left) => names.map((name) => ({ muted: !isPart(name) || left(name), level: 0 }));
        const presets = [['All stems', without(() => false)]];
        const offer = (title, left) => {
            const has = names.some((name) => isPart(name) && left(name));
            const keeps = names.some((name) => isPart(name) && !left(name));
            if (has && keeps) presets.push([title, without(left)]);
        };
        offer('Karaoke', (name) => name === 'vocals');
        offer('Vocals only', (name) => name !== 'vocals');
        offer('Without drums', (name) => name === 'drum');
        offer('Without bass', (name) => name === 'bass');
        offer('Without guitars', (name) => name.endsWith('guitar'));
        offer('Without piano', (name) => name === 'piano');
        for (const { name, levels } of mixes) {
            const level = (stem) => Math.min(levels[stem] ?? 0, Mixer.highest);
            const isSilent = (stem) => !isPart(stem) || levels[stem] === null || level(stem) <= Mixer.lowest;
            presets.push([titleOf(name), names.map((stem) => (
                isSilent(stem) ? { muted: true, level: 0 } : { muted: false, level: level(stem) }))]);
        }
        const texts = presets.map(([, settings]) => JSON.stringify(settings));
        return presets.filter((_, index) => texts.indexOf(texts[index]) === index)
            .map(([title, settings]) => ({ title, settings }));
    }

    reset() {
        this.use(0);
    }

    /** Takes the settings of a preset. */
    use(preset) {
        this.stems = this.presets[preset].settings.map((settings) => ({ ...settings, solo: false }));
        this.changed();
    }

    /** The preset that the settings are those of, or -1. */
    get preset() {
        const isLike = (settings) => this.stems.every((stem, index) =>
            !stem.solo && stem.muted === settings[index].muted && stem.level === settings[index].level);
        return this.presets.findIndex(({ settings }) => isLike(settings));
    }

    /** Changes settings of a stem: muted, solo or level. */
    set(index, settings) {
        if (!this.stems[index]) return;
        Object.assign(this.stems[index], settings);
        this.changed();
    }

    toggle(index, setting) {
        if (this.stems[index]) this.set(index, { [setting]: !this.stems[index][setting] });
    }

    setVolume(level) {
        this.volume = Math.min(Math.max(level, Mixer.lowest), Mixer.highest);
        this.changed();
    }

    isHeard(index) {
        const { muted, solo } = this.stems[index];
        return this.stems.some((stem) => stem.solo) ? solo : !muted;
    }

    /** The factor for a stem's samples, without the volume of all. */
    gain(index) {
        return this.isHeard(index) ? Mixer.factor(this.stems[index].level) : 0;
    }

    static factor(level) {
        return level <= Mixer.lowest ? 0 : 10 ** (level / 20);
    }

    changed() {
        this.dispatchEvent(new Event('change'));
    }
}
