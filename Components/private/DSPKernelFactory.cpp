#include "Components/DSPKernelFactory.h"

namespace zuc::DSPKernelFactory {
namespace {

template <class Creator>
std::map<Name, Creator>& Creators() {
    static auto* const creators = new std::map<Name, Creator>;
    return *creators;
}

template <class Creator>
auto Create(const Name& name, float value, int number) {
    const auto found = Creators<Creator>().find(name);
    return found == Creators<Creator>().end() ? nullptr : found->second(value, number);
}

}  // namespace

void AddProcessorCreator(const Name& name, const ProcessorCreator& creator) {
    Creators<ProcessorCreator>()[name] = creator;
}

void AddAnalyzerCreator(const Name& name, const AnalyzerCreator& creator) {
    Creators<AnalyzerCreator>()[name] = creator;
}

dsp::DSPProcess* CreateProcessor(const Name& name, float value, int number) {
    return Create<ProcessorCreator>(name, value, number);
}

dsp::DSPAnalyzer* CreateAnalyzer(const Name& name, float value, int number) {
    return Create<AnalyzerCreator>(name, value, number);
}

void RemoveCreator(const Name& name) {
    Creators<ProcessorCreator>().erase(name);
    Creators<AnalyzerCreator>().erase(name);
}

}  // namespace zuc::DSPKernelFactory
