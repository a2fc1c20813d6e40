#pragma once

namespace boost {
class thread;
}
class CNode;
class CResult;

// What belongs to one started node: three plain pointers, none of them owned. The engine that made
// the thread and the result deletes them.
class CCmdThreadResult {
public:
    CCmdThreadResult(CNode* owner, boost::thread* worker, CResult* outcome);

    CNode* getNode() const;
    boost::thread* getThread() const;
    CResult* getResult() const;

private:
    CNode* node;
    boost::thread* thread;
    CResult* result;
};
