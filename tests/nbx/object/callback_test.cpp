#include <nbx/object/callback.h>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

using NBX::SO;

namespace {

int s_sum = 0;
void addToSum(int value) {
    s_sum += value;
}

class Adder : public NBX::SharedObj {
    NBX_TEMPLATE_CLASS(Adder, SharedObj)
public:
    int add(int value) { return sum_ += value; }

private:
    int sum_ = 10;
};

TEST(FunctionCallback1, CallsTheFunction) {
    s_sum = 0;
    const SO<NBX::Callback1<int>> callback(new NBX::FunctionCallback1<int>(addToSum));
    callback->call(3);
    callback->call(4);
    EXPECT_EQ(s_sum, 7);
}

TEST(FunctionCallback1, NoFunctionIsReportedAndDoesNothing) {
    const RecordedReports reports;
    const SO<NBX::Callback1<int>> callback(new NBX::FunctionCallback1<int>(nullptr));
    EXPECT_EQ(reports.count(0, L"func", L"no function"), 1U) << reports;
    callback->call(3);
    EXPECT_EQ(reports.size(), 1U);
}

TEST(MethodCallbackR1, CallsTheMethodAndKeepsTheObject) {
    SO<Adder> adder(new Adder);
    const SO<NBX::CallbackR1<int, int>> callback(
        new NBX::MethodCallbackR1<int, int, Adder>(adder.get(), &Adder::add));
    EXPECT_EQ(adder->references(), 2);
    adder = nullptr;
    EXPECT_EQ(callback->call(5), 15);
    EXPECT_EQ(callback->call(5), 20);
}

TEST(MethodCallbackR1, NoObjectOrNoMethodIsReportedAndGivesTheDefault) {
    const RecordedReports reports;
    const SO<NBX::CallbackR1<int, int>> nobody(
        new NBX::MethodCallbackR1<int, int, Adder>(nullptr, &Adder::add));
    EXPECT_EQ(reports.count(0, L"object", L"no object"), 1U);
    EXPECT_EQ(nobody->call(1), 0);
    const SO<Adder> adder(new Adder);
    const SO<NBX::CallbackR1<int, int>> nothing(
        new NBX::MethodCallbackR1<int, int, Adder>(adder.get(), nullptr));
    EXPECT_EQ(reports.count(0, L"method", L"no method"), 1U);
    EXPECT_EQ(nothing->call(1), 0);
}

TEST(Callback, ClassesKnowTheirParents) {
    const SO<NBX::CallbackBase> callback(new NBX::FunctionCallback1<int>(addToSum));
    EXPECT_TRUE(callback->classInfoNBX()->isA("NBX::CallbackBase"));
    EXPECT_TRUE(callback->classInfoNBX()->isA("NBX::Callback1<int>"));
}

} // namespace
