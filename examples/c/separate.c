// SPDX-License-Identifier: MIT
/* Separates a piece of sound through the C interface and prints how loud each stem is.
 *
 *   example_c MODEL.onnx [SONG.raw]
 *
 * SONG.raw holds stereo samples as 32-bit floats, interleaved and without a header, as `sox song.wav -e float
 * -b 32 -c 2 song.raw` writes them. Without it ten seconds of two tones are separated. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <tonwerk/tonwerk_c.h>

enum
{
    blockFrames = 480, /* any number will do: what a sound card delivers in 10 ms at 48 kHz */
    sampleRate = 44100,
    toneFrames = 10 * sampleRate
};

static const char* const stemNames[TONWERK_STEM_COUNT] = {
    "vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass", "residual", "mix"};

/* Where the blocks come from: a file, or tones if there is none. */
typedef struct
{
    FILE* file;
    size_t position;
} Source;

/* What has come back: the sum of the squares of each stem's samples. */
typedef struct
{
    double energy[TONWERK_STEM_COUNT];
    size_t frames;
} Result;

static size_t nextBlock(Source* source, float* block)
{
    const double pi = 3.14159265358979323846;
    size_t count = 0;
    if (source->file != NULL)
        return fread(block, 2 * sizeof(float), blockFrames, source->file);
    for (; count < blockFrames && source->position < toneFrames; ++count, ++source->position)
    {
        const double seconds = (double)source->position / sampleRate;
        block[2 * count] = (float)(0.5 * sin(2.0 * pi * 440.0 * seconds));
        block[2 * count + 1] = (float)(0.25 * sin(2.0 * pi * 660.0 * seconds));
    }
    return count;
}

/* Reads what is available, a block at a time, into buffers that a host owns. */
static tonwerk_status readAvailable(tonwerk_stream* stream, Result* result)
{
    static float buffers[TONWERK_STEM_COUNT][2 * blockFrames];
    float* stems[TONWERK_STEM_COUNT];
    size_t count = 0;
    for (int i = 0; i < TONWERK_STEM_COUNT; ++i)
        stems[i] = buffers[i];
    do
    {
        const tonwerk_status status = tonwerk_stream_read(stream, stems, blockFrames, &count);
        if (status != TONWERK_OK)
            return status;
        for (int i = 0; i < TONWERK_STEM_COUNT; ++i)
            for (size_t k = 0; k < 2 * count; ++k)
                result->energy[i] += (double)stems[i][k] * (double)stems[i][k];
        result->frames += count;
    } while (count > 0);
    return TONWERK_OK;
}

static tonwerk_status separate(tonwerk_stream* stream, Source* source, Result* result)
{
    float block[2 * blockFrames];
    size_t frames = 0;
    tonwerk_status status = TONWERK_OK;
    while (status == TONWERK_OK && (frames = nextBlock(source, block)) > 0)
    {
        status = tonwerk_stream_push(stream, block, frames);
        if (status == TONWERK_OK)
            status = readAvailable(stream, result);
    }
    if (status == TONWERK_OK)
        status = tonwerk_stream_flush(stream);
    if (status == TONWERK_OK)
        status = readAvailable(stream, result);
    return status;
}

static tonwerk_context* loadModel(const char* path)
{
    tonwerk_context* context = NULL;
    FILE* file = fopen(path, "rb");
    long size = 0;
    void* bytes = NULL;
    if (file != NULL && fseek(file, 0, SEEK_END) == 0 && (size = ftell(file)) > 0 &&
        fseek(file, 0, SEEK_SET) == 0 && (bytes = malloc((size_t)size)) != NULL &&
        fread(bytes, 1, (size_t)size, file) == (size_t)size)
    {
        if (tonwerk_context_create(bytes, (size_t)size, NULL, 0, &context) != TONWERK_OK)
            fprintf(stderr, "%s: %s\n", path, tonwerk_last_error());
    }
    else
    {
        fprintf(stderr, "%s cannot be read.\n", path);
    }
    free(bytes);
    if (file != NULL)
        fclose(file);
    return context;
}

static void print(const Result* result)
{
    printf("tonwerk %s, %lu frames\n", tonwerk_version(), (unsigned long)result->frames);
    for (int i = 0; i < TONWERK_STEM_COUNT; ++i)
        printf("%-16s %.6f RMS\n", stemNames[i],
               result->frames > 0 ? sqrt(result->energy[i] / (2.0 * (double)result->frames)) : 0.0);
}

int main(int argc, char** argv)
{
    Source source = {NULL, 0};
    Result result = {{0.0}, 0};
    tonwerk_context* context = NULL;
    tonwerk_stream* stream = NULL;
    tonwerk_status status = TONWERK_OK;
    if (argc != 2 && argc != 3)
    {
        fprintf(stderr, "usage: %s MODEL.onnx [SONG.raw]\n", argv[0]);
        return 2;
    }
    if (argc == 3 && (source.file = fopen(argv[2], "rb")) == NULL)
    {
        fprintf(stderr, "%s cannot be read.\n", argv[2]);
        return 1;
    }
    context = loadModel(argv[1]);
    if (context != NULL)
    {
        status = tonwerk_stream_create(context, NULL, &stream);
        tonwerk_context_destroy(context); /* the stream keeps the model */
        if (status == TONWERK_OK)
            status = separate(stream, &source, &result);
        if (status == TONWERK_OK)
            print(&result);
        else
            fprintf(stderr, "%s\n", tonwerk_last_error());
        tonwerk_stream_destroy(stream);
    }
    if (source.file != NULL)
        fclose(source.file);
    return context != NULL && status == TONWERK_OK ? 0 : 1;
}
