// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_EXTERNALDATA_H
#define TONWERK_INFERENCE_EXTERNALDATA_H

#include <cstddef>
#include <stdexcept>

/// A model keeps values outside of its bytes.
class ExternalDataRefused : public std::runtime_error
{
public:
    ExternalDataRefused()
        : std::runtime_error("The model has external data: it would read files of this machine. Only models "
                             "that are whole in themselves are loaded")
    {
    }
};

/// Looks for tensors with external data (ONNX, "External Data") in all parts of a network: what a file holds
/// at the place that such a tensor names, or the memory at an address that it names, would become values of
/// the network. The runtime reads them even if it gets the network as bytes.
/// \param model, size the plain serialized network. Bytes that are no network are left to the runtime
/// \throws ExternalDataRefused
void refuseExternalData(const void* model, std::size_t size);

#endif // TONWERK_INFERENCE_EXTERNALDATA_H
