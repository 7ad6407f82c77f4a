// SPDX-License-Identifier: MIT
/* The rows of the mixer: the original's, then one per stem with switches, fader and pictures. */
class Channels {
    static largestScale = 32; // of a quiet track's picture

    /** @param {{song: object, stems: object[]}} report */
    constructor(report, mixer, view) {
        this.report = report;
        this.mixer = mixer;
        this.view = view;
        this.scalesQuiet = true;
        this.tracks = [report.song, ...report.stems];
        this.loudest = Math.max(...this.tracks.map(({ peak }) => peak), 1e-9);
        this.outlines = this.tracks.map(({ outline }) => new Outline(outline, report.sampleRate));
        this.rows = [this.build(report.song, 'Original'),
            ...report.stems.map((stem, index) => this.buildStem(stem, index))];
        mixer.addEventListener('change', () => this.showMixer());
        this.showMixer();
    }

    build(track, title) {
        const row = byId('track').content.firstElementChild.cloneNode(true);
        row.setAttribute('aria-label', title);
        row.style.setProperty('--color', track.color);
        row.querySelector('.name').textContent = title;
        row.querySelector('.waveform').setAttribute('aria-label', `Waveform of ${title}`);
        Object.assign(row.querySelector('.spectrogram'), { src: track.spectrogram, alt: `Spectrogram of ${title}` });
        row.querySelector('.pictures').append(...this.frequencies());
        if (title === 'Original')
            for (const control of row.querySelectorAll('.strip > :not(h2)')) control.remove();
        byId('tracks').append(row);
        return row;
    }

    /** Marks beside a spectrogram, whose scale is logarithmic. */
    frequencies() {
        const { lowestFrequency, highestFrequency } = this.report;
        const octaves = Math.log2(highestFrequency / lowestFrequency);
        const marks = [[200, '200 Hz'], [1000, '1 kHz'], [5000, '5 kHz']];
        const shown = marks.filter(([hertz]) => hertz < 0.8 * highestFrequency);
        return shown.map(([hertz, text]) => {
            const mark = document.createElement('span');
            mark.className = 'frequency';
            mark.textContent = text;
            mark.style.top = `${100 * (1 - Math.log2(hertz / lowestFrequency) / octaves)}%`;
            return mark;
        });
    }

    buildStem(stem, index) {
        const title = titleOf(stem.name);
        const row = this.build(stem, title);
        row.querySelector('.key').textContent = index + 1;
        const [mute, solo, fader] = ['.mute', '.solo', '.fader'].map((selector) => row.querySelector(selector));
        const label = (control, text, shortcut) => {
            control.setAttribute('aria-label', text);
            control.setAttribute('aria-keyshortcuts', shortcut);
            control.title = `${text} (${shortcut.replace('+', ' ')})`;
        };
        label(mute, `Mute ${title}`, `${index + 1}`);
        label(solo, `Solo ${title}`, `Shift+${index + 1}`);
        mute.addEventListener('click', () => this.mixer.toggle(index, 'muted'));
        solo.addEventListener('click', () => this.mixer.toggle(index, 'solo'));
        fader.setAttribute('aria-label', `Level of ${title}`);
        fader.title = 'Double-click for 0 dB';
        fader.addEventListener('input', () => this.mixer.set(index, { level: Number(fader.value) }));
        fader.addEventListener('dblclick', () => this.mixer.set(index, { level: 0 }));
        return row;
    }

    /** The text of a fader's level. */
    static levelText(level) {
        if (level <= Mixer.lowest) return '\u2212\u221e';
        return `${level > 0 ? '+' : ''}${number(level, 1)}`;
    }

    static showLevel(fader, output, level) {
        fader.value = level;
        fader.setAttribute('aria-valuetext', `${Channels.levelText(level)} dB`);
        output.textContent = Channels.levelText(level);
    }

    showMixer() {
        this.mixer.stems.forEach((settings, index) => {
            const row = this.rows[index + 1];
            row.querySelector('.mute').setAttribute('aria-pressed', settings.muted);
            row.querySelector('.solo').setAttribute('aria-pressed', settings.solo);
            Channels.showLevel(row.querySelector('.fader'), row.querySelector('.level'), settings.level);
            row.classList.toggle('unheard', !this.mixer.isHeard(index));
        });
    }

    /** The power of two by which a quiet track is drawn larger. */
    scaleOf(track) {
        if (!this.scalesQuiet || track.peak === 0) return 1;
        const scale = 2 ** Math.floor(Math.log2(this.loudest / track.peak));
        return Math.min(Math.max(scale, 1), Channels.largestScale);
    }

    /** Draws all rows, and the original's outline over the whole song on another canvas. */
    draw(whole) {
        const { start, end, length, duration } = this.view;
        const isSpectrum = document.body.dataset.view === 'spectrogram';
        this.rows.forEach((row, index) => {
            const track = this.tracks[index];
            const scale = this.scaleOf(track);
            row.querySelector('.times').textContent =
                track.peak === 0 ? 'silent' : scale > 1 && !isSpectrum ? `\u00d7${scale}` : '';
            const picture = row.querySelector('.spectrogram');
            picture.style.width = `${(100 * duration) / length}%`;
            picture.style.left = `${(-100 * start) / length}%`;
            const height = (scale * track.peak) / this.loudest;
            if (!isSpectrum) this.outlines[index].draw(row.querySelector('.waveform'), start, end, height);
        });
        this.outlines[0].draw(whole, 0, duration, 1);
    }
}
