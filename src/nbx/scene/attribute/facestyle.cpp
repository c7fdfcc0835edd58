#include <nbx/scene/attribute/facestyle.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(FaceStyle, MonoAttribute)

namespace {

bool isStyle(int value) {
    return FaceStyle::S_Points <= value && value <= FaceStyle::S_Culled;
}

bool isOrder(int value) {
    return value == FaceStyle::O_Clockwise || value == FaceStyle::O_CounterClockwise ||
           value == FaceStyle::O_Unchanged;
}

FaceStyle::Style styleOf(int value) {
    return isStyle(value) ? static_cast<FaceStyle::Style>(value) : FaceStyle::S_Filled;
}

FaceStyle::Order orderOf(int value) {
    return isOrder(value) ? static_cast<FaceStyle::Order>(value) : FaceStyle::O_Unchanged;
}

} // namespace

FaceStyle::FaceStyle(int front, int back, int order)
    : MonoAttribute(true), front_(styleOf(front)), back_(styleOf(back)), order_(orderOf(order)) {
    NBX_CHECK(isStyle(front) && isStyle(back) && isOrder(order),
              L"invalid face style: " << front << L", " << back << L", " << order);
}

void FaceStyle::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    int front = front_, back = back_, order = order_;
    attributeWithDefault(m, "front", front, int(S_Filled));
    attributeWithDefault(m, "back", back, int(S_Filled));
    attributeWithDefault(m, "order", order, int(O_Unchanged));
    front_ = styleOf(front);
    back_ = styleOf(back);
    order_ = orderOf(order);
}

} // namespace NBX
