#include "machine/core/ParameterInitialValues.h"

#include "neo/SingletonCleaner.h"

namespace tolm {

std::unique_ptr<ParameterInitialValues> ParameterInitialValues::_singleton;

ParameterInitialValues& ParameterInitialValues::getSingleton() {
    if (!_singleton) {
        _singleton.reset(new ParameterInitialValues());
        SingletonCleaner::registerCleanUp(&ParameterInitialValues::reset);
    }
    return *_singleton;
}

void ParameterInitialValues::addParameterArg(const std::string& name, const std::string& value) {
    _values[name] = value;
}

void ParameterInitialValues::reset() {
    _singleton.reset();
}

}  // namespace tolm
