// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_STEMFLAGS_H
#define TONWERK_INFERENCE_STEMFLAGS_H

/// Which stems the model is asked for, in the order of its flag inputs. That is not the order of its outputs
/// and of the host's stem switches, where bass comes last.
struct StemFlags
{
    bool vocals = false;
    bool drum = false;
    bool bass = false;
    bool piano = false;
    bool acousticGuitar = false;
    bool electricGuitar = false;
};

static_assert(sizeof(StemFlags) == 6);

#endif // TONWERK_INFERENCE_STEMFLAGS_H
