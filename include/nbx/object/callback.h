#pragma once

#include <nbx/object/errorhandler.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace NBX {

/// Base of what can be called back.
class CallbackBase : public SharedObj {
    NBX_CLASS(CallbackBase, SharedObj)
};

template <class A> class Callback1 : public CallbackBase {
    NBX_TEMPLATE_CLASS(Callback1, CallbackBase)
public:
    virtual void call(A argument) = 0;
};

template <class A, class B> class Callback2 : public CallbackBase {
    using Self = Callback2;
    NBX_TEMPLATE_CLASS(Self, CallbackBase)
public:
    virtual void call(A first, B second) = 0;
};

template <class R, class A> class CallbackR1 : public CallbackBase {
    using Self = CallbackR1;
    NBX_TEMPLATE_CLASS(Self, CallbackBase)
public:
    virtual R call(A argument) = 0;
};

/// Calls a free function.
template <class A> class FunctionCallback1 : public Callback1<A> {
    using Base = Callback1<A>;
    NBX_TEMPLATE_CLASS(FunctionCallback1, Base)
public:
    using Function = void (*)(A);

    explicit FunctionCallback1(Function func) : func_(func) { NBX_CHECK(func, L"no function"); }
    void call(A argument) override {
        if (func_) func_(argument);
    }

private:
    Function func_;
};

/// Calls a member function of a shared object, which it keeps alive.
template <class R, class A, class C> class MethodCallbackR1 : public CallbackR1<R, A> {
    using Base = CallbackR1<R, A>;
    using Self = MethodCallbackR1;
    NBX_TEMPLATE_CLASS(Self, Base)
public:
    using Method = R (C::*)(A);

    MethodCallbackR1(C * object, Method method) : object_(object), method_(method) {
        NBX_CHECK(object, L"no object");
        NBX_CHECK(method, L"no method");
    }
    /// The default value where object or method is missing.
    R call(A argument) override {
        if (!object_ || !method_) return R();
        return (object_.get()->*method_)(argument);
    }

private:
    SO<C> object_;
    Method method_;
};

} // namespace NBX
