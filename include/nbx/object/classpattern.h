#pragma once

#include <typeinfo>

#include <nbx/object/classinfo.h>
#include <nbx/object/visitable.h>

// The members that every class of the object model carries. A class names its parent once in each macro:
//
//     class Ellipse : public Shape {
//         NBX_CLASS(Ellipse, Shape)
//         ...
//     };
//     NBX_CLASS_IMPL(Ellipse, Shape)          // in ellipse.cpp
//
// Classes that can be stored use NBX_STORED_CLASS and NBX_STORED_CLASS_IMPL instead, which also register
// the class when the library loads. Class templates and classes of one file use NBX_TEMPLATE_CLASS or
// NBX_STORED_TEMPLATE_CLASS, which stand alone.

#define NBX_CLASS(Class, Parent)                                                                             \
public:                                                                                                      \
    static const NBX::ClassInfo * ClassInfoNBX();                                                            \
    static const NBX::ID & ClassNameNBX();                                                                   \
    const NBX::ClassInfo * classInfoNBX() const override;                                                    \
    bool isEqual(const NBX::SharedObj * other) const override;                                               \
    NBX::VisitMode acceptHierarchyRecursionImpl(NBX::VisitorBase & v, bool pre);                             \
    bool acceptedImpl(NBX::VisitorBase & v, bool pre, NBX::VisitMode & mode);                                \
    NBX::VisitMode accept(NBX::VisitorBase & v) override;                                                    \
                                                                                                             \
private:

#define NBX_CLASS_IMPL_MEMBERS(Prefix, Class, Parent, Inline)                                                \
    Inline const NBX::ClassInfo * Prefix ClassInfoNBX() {                                                    \
        static const NBX::ClassInfo info(typeid(Class), Parent::ClassInfoNBX());                             \
        return &info;                                                                                        \
    }                                                                                                        \
    Inline const NBX::ID & Prefix ClassNameNBX() {                                                           \
        return ClassInfoNBX()->name();                                                                       \
    }

#define NBX_CLASS_IMPL_VIRTUALS(Prefix, Class, Parent, Override)                                             \
    const NBX::ClassInfo * Prefix classInfoNBX() const Override {                                            \
        return Class::ClassInfoNBX();                                                                        \
    }                                                                                                        \
    bool Prefix isEqual(const NBX::SharedObj * other) const Override {                                       \
        if (!other) return false;                                                                            \
        if (other == this) return true;                                                                      \
        if (other->classInfoNBX() != this->classInfoNBX()) return false;                                     \
        return NBX::SharedObj::operator==(*other);                                                           \
    }                                                                                                        \
    NBX::VisitMode Prefix acceptHierarchyRecursionImpl(NBX::VisitorBase & v, bool pre) {                     \
        NBX::VisitMode mode;                                                                                 \
        if (Class::acceptedImpl(v, pre, mode)) return mode;                                                  \
        if (v.acceptsOnlyExactType()) return v.defaultMode();                                                \
        return Parent::acceptHierarchyRecursionImpl(v, pre);                                                 \
    }                                                                                                        \
    bool Prefix acceptedImpl(NBX::VisitorBase & v, bool pre, NBX::VisitMode & mode) {                        \
        auto * typed = dynamic_cast<NBX::Visitor<Class> *>(&v);                                              \
        if (typed) mode = typed->visit(this, pre);                                                           \
        return typed != nullptr;                                                                             \
    }                                                                                                        \
    NBX::VisitMode Prefix accept(NBX::VisitorBase & v) Override {                                            \
        NBX::VisitMode before = Class::acceptHierarchyRecursionImpl(v, true);                                \
        if (before == NBX::VM_Continue) before = this->visitChildren(v);                                     \
        const NBX::VisitMode behind = Class::acceptHierarchyRecursionImpl(v, false);                         \
        return before > behind ? before : behind;                                                            \
    }

#define NBX_CLASS_IMPL(Class, Parent)                                                                        \
    NBX_CLASS_IMPL_MEMBERS(Class::, Class, Parent, )                                                         \
    NBX_CLASS_IMPL_VIRTUALS(Class::, Class, Parent, )

#define NBX_STORED_CLASS(Class, Parent)                                                                      \
    NBX_CLASS(Class, Parent)                                                                                 \
public:                                                                                                      \
    bool isRegisteredForSerialization() const override;                                                      \
    static NBX::SharedObj * newInstance();                                                                   \
    static const bool isRegisteredForSerialization_;                                                         \
                                                                                                             \
private:

#define NBX_STORED_CLASS_IMPL(Class, Parent)                                                                 \
    NBX_CLASS_IMPL(Class, Parent)                                                                            \
    bool Class::isRegisteredForSerialization() const {                                                       \
        return isRegisteredForSerialization_;                                                                \
    }                                                                                                        \
    NBX::SharedObj * Class::newInstance() {                                                                  \
        return new Class();                                                                                  \
    }                                                                                                        \
    const bool Class::isRegisteredForSerialization_ =                                                        \
        NBX::SerializationManager::registerClass(Class::ClassNameNBX(), &Class::newInstance);

#define NBX_TEMPLATE_CLASS(Class, Parent)                                                                    \
public:                                                                                                      \
    NBX_CLASS_IMPL_MEMBERS(, Class, Parent, static)                                                          \
    NBX_CLASS_IMPL_VIRTUALS(, Class, Parent, override)                                                       \
private:

#define NBX_STORED_TEMPLATE_CLASS(Class, Parent)                                                             \
    NBX_TEMPLATE_CLASS(Class, Parent)                                                                        \
public:                                                                                                      \
    bool isRegisteredForSerialization() const override {                                                     \
        return isRegisteredForSerialization_;                                                                \
    }                                                                                                        \
    static NBX::SharedObj * newInstance() {                                                                  \
        return new Class();                                                                                  \
    }                                                                                                        \
    static inline const bool isRegisteredForSerialization_ =                                                 \
        NBX::SerializationManager::registerClass(ClassInfoNBX()->name(), &newInstance);                      \
                                                                                                             \
private:
