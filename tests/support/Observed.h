#pragma once

#include <functional>
#include <list>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "CException.h"

template <class T>
std::vector<T> asVector(const std::list<T>& list) {
    return {list.begin(), list.end()};
}

using Words = std::vector<std::string>;

// What the work writes on standard output.
std::string printedBy(const std::function<void()>& work);

// The message of the exception of exactly that kind, or a text that no message equals.
template <class Exception>
std::string messageOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const CException& fault) {
        return typeid(fault) == typeid(Exception) ? fault.getErrMsg()
                                                  : "<another kind: " + fault.getErrMsg() + ">";
    }
    return "<nothing was thrown>";
}
