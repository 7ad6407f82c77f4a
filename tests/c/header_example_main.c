// SPDX-License-Identifier: MIT
/* The host around the example of tonwerk_c.h: a tone through gains.onnx, whose answers are known.

   usage: header_example MODEL.onnx */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <tonwerk/tonwerk_c.h>

int separate(const void* model, size_t modelSize);
size_t nextBlock(float* block, size_t capacity);
void use(float* const stems[TONWERK_STEM_COUNT], size_t frames);

enum
{
    songFrames = 300001
};

static size_t taken = 0;
static size_t returned = 0;
static float worst = 0.0F;

static float sampleAt(size_t frame)
{
    return 0.25F * sinf(0.05F * (float)(frame % 10000));
}

size_t nextBlock(float* block, size_t capacity)
{
    size_t count = 0;
    for (; count < capacity && taken < songFrames; ++count, ++taken)
        block[2 * count] = block[2 * count + 1] = sampleAt(taken);
    return count;
}

void use(float* const stems[TONWERK_STEM_COUNT], size_t frames)
{
    for (size_t i = 0; i < frames; ++i, ++returned)
    {
        const float expected = 10.0F / 32.0F * sampleAt(returned);
        worst = fmaxf(worst, fabsf(stems[TONWERK_VOCALS][2 * i] - expected));
        worst = fmaxf(worst, fabsf(stems[TONWERK_MIX][2 * i + 1] - sampleAt(returned)));
    }
}

int main(int argc, char** argv)
{
    static char model[100000];
    FILE* file = argc == 2 ? fopen(argv[1], "rb") : NULL;
    if (file == NULL)
        return EXIT_FAILURE;
    const size_t size = fread(model, 1, sizeof model, file);
    fclose(file);
    const int failed = separate(model, size);
    printf("%zu frames in, %zu out, largest error %g\n", taken, returned, (double)worst);
    return failed == 0 && returned == songFrames && worst < 2.5e-4F ? EXIT_SUCCESS : EXIT_FAILURE;
}
