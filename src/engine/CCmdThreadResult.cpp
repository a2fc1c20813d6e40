#include "CCmdThreadResult.h"

CCmdThreadResult::CCmdThreadResult(CNode* owner, boost::thread* worker, CResult* outcome)
    : node(owner), thread(worker), result(outcome) {}

CNode* CCmdThreadResult::getNode() const {
    return node;
}

boost::thread* CCmdThreadResult::getThread() const {
    return thread;
}

CResult* CCmdThreadResult::getResult() const {
    return result;
}
