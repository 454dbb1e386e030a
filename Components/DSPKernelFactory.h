#pragma once

#include <map>
#include <memory>
#include <string>

#include <boost/function.hpp>

#include "kracore/Export.h"
#include "kracore/SmallBlockAllocator.h"

namespace dsp {
class DSPProcess;
class DSPAnalyzer;
}  // namespace dsp

/// Process-wide creation functions of DSP kernels by name, so that one part of the library can make a kernel
/// that another part registered. The float and the int go to the creator as they are. [host]
namespace zuc::DSPKernelFactory {

using Name = std::basic_string<char,
                               std::char_traits<char>,
                               kracore::utility::SmallBlockAllocator::STLAllocator<char>>;
using ProcessorCreator = boost::function<dsp::DSPProcess*(float, int)>;
using AnalyzerCreator = boost::function<dsp::DSPAnalyzer*(float, int)>;

/// The last registration of a name wins.
ZUC_API void AddProcessorCreator(const Name& name, const ProcessorCreator& creator);
ZUC_API void AddAnalyzerCreator(const Name& name, const AnalyzerCreator& creator);
/// A new kernel that the caller owns, or null for an unknown name. An empty creator throws
/// boost::bad_function_call.
ZUC_API dsp::DSPProcess* CreateProcessor(const Name& name, float value, int number);
ZUC_API dsp::DSPAnalyzer* CreateAnalyzer(const Name& name, float value, int number);
/// Removes processor and analyzer of that name.
ZUC_API void RemoveCreator(const Name& name);

}  // namespace zuc::DSPKernelFactory
