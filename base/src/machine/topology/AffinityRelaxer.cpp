#include "machine/topology/AffinityRelaxer.h"

#include "machine/topology/Affinity.h"
#include "machine/topology/CpuTopology.h"

namespace tolm {

AffinityRelaxer::AffinityRelaxer(const CpuTopology& topology, const AffinityMask& lpus)
    : _topology(topology), _saved(Affinity::getProcessAffinity(topology)) {
    if (_saved.empty())
        return;  // without the binding to restore, the process is left as it is
    const AffinityMask widened = _saved | topology.restrictToAvailableResources(AffinityMask(lpus));
    _relaxed = widened == _saved || Affinity::setProcessAffinity(topology, widened);
}

AffinityRelaxer::AffinityRelaxer(const CpuTopology& topology)
    : AffinityRelaxer(topology, topology.getTopologyMask()) {}

AffinityRelaxer::~AffinityRelaxer() {
    if (_relaxed)
        Affinity::setProcessAffinity(_topology, _saved);
}

}  // namespace tolm
