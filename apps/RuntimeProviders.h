#ifndef TONWERK_APPS_RUNTIMEPROVIDERS_H
#define TONWERK_APPS_RUNTIMEPROVIDERS_H

#include <string>
#include <vector>

namespace tonwerk::app
{

/// The execution providers that the loaded inference runtime offers. Which of them works on this machine only
/// the loading of a model shows. \return none if no runtime is loaded
std::vector<std::string> offeredProviders();

} // namespace tonwerk::app

#endif // TONWERK_APPS_RUNTIMEPROVIDERS_H
