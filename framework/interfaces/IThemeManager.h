#pragma once

#include "framework/core/IUnknown.h"

#include <type_traits>

namespace KVX {

/// A font as a theme style names it.
struct FontRecord
{
    enum Style : uint32
    {
        kNormal = 0,
        kBold = 1 << 0,
        kItalic = 1 << 1,
    };

    char face[64]; ///< family name, UTF-8, terminated ("Arial")
    double size;   ///< in points
    uint32 style;  ///< Style bits
};

static_assert(std::is_trivially_copyable_v<FontRecord> && std::is_standard_layout_v<FontRecord>);

/// An image of a theme: a PNG file of its package, divided into frames of equal size. The
/// texts belong to the theme and stay valid as long as it lives.
struct ImageRecord
{
    const char* file;       ///< path in the package ("images/busy.png")
    const char* frameNames; ///< the frames' names separated by blanks ("normal normalOn"), "" when unnamed
    uint32 width;           ///< of the whole image, in pixels
    uint32 height;
    uint32 frameCount; ///< 1 for an undivided image
    uint32 vertical;   ///< 1: frames stacked from the top down; 0: side by side from the left
    uint32 duration;   ///< of one pass through the frames, in milliseconds; 0 when not animated
};

static_assert(std::is_trivially_copyable_v<ImageRecord> && std::is_standard_layout_v<ImageRecord>);

/// What one element of a form binds to. The controller is a path of child component names,
/// joined with "/", from the component on which the element's form is opened ("" for that
/// component itself, "Credentials", "Client"). The texts belong to the theme.
struct BindingRecord
{
    enum Kind : uint32
    {
        kParameter = 1, ///< a parameter of the controller, by name (edit boxes, buttons, variants)
        kProperty = 2,  ///< a property of the controller, read by name (variants, busy indicators)
        kObject = 3,    ///< an object that the controller publishes (the track table's model)
        kForm = 4,      ///< another form of the theme, opened on the controller
    };

    uint32 kind;
    const char* controller;
    const char* name;
};

static_assert(std::is_trivially_copyable_v<BindingRecord> && std::is_standard_layout_v<BindingRecord>);

/// One element of a theme's form or resource tree: its type (the XML element's name: "Form",
/// "Vertical", "EditBox", "Variant", "View", ...), attributes in document order and children.
/// Elements belong to their theme: a pointer handed out without a reference stays valid as long
/// as the theme lives, and retaining an element retains its theme. The texts returned stay valid
/// as long as the theme. User-interface thread.
class IThemeElement : public IUnknown
{
public:
    virtual const char* getType() = 0;
    /// The attribute's value, or null when the element has none of that name.
    virtual const char* getAttribute(const char* name) = 0;
    virtual uint32 countAttributes() = 0;
    /// Name and value of the attribute at `index`; null when `index` is out of range.
    virtual const char* getAttributeName(uint32 index) = 0;
    virtual const char* getAttributeValue(uint32 index) = 0;
    virtual uint32 countChildren() = 0;
    /// The child at `index`, without a reference, or null when out of range.
    virtual IThemeElement* getChild(uint32 index) = 0;
    /// The component path that this element and its children bind within, relative to the
    /// component on which its form is opened (see BindingRecord).
    virtual const char* getController() = 0;
    /// What the element binds to. kInvalidArgument for an element that binds nothing (a label,
    /// a layout box, an image).
    virtual tresult getBinding(BindingRecord& binding) = 0;

    static constexpr UID kIID = UID::fromString("{5B0E7C24-9D13-4A8F-B6E2-71C3F08D4A95}");
};

/// One loaded theme: its styles (colours, metrics, fonts by style and setting name, with the
/// inheritance the theme declares), images and forms. Lives as long as the theme manager keeps
/// it. User-interface thread.
class ITheme : public IUnknown
{
public:
    /// The colour `name` of `style` as 0xRRGGBBAA. kInvalidArgument when neither the style nor
    /// a style it inherits from defines it. A null or empty `style` looks among the theme's
    /// colour resources.
    virtual tresult getColor(const char* style, const char* name, uint32& rgba) = 0;
    /// The metric `name` of `style` ("rowHeight"). kInvalidArgument when undefined.
    virtual tresult getMetric(const char* style, const char* name, double& value) = 0;
    /// The font `name` of `style` ("textfont"). kInvalidArgument when undefined.
    virtual tresult getFont(const char* style, const char* name, FontRecord& font) = 0;

    /// The image `name` ("GadgetButton"). kInvalidArgument when the theme declares none of that
    /// name; kUnexpected when its file is missing from the package or is not a PNG image.
    virtual tresult getImage(const char* name, ImageRecord& image) = 0;
    /// The index of the frame `frame` of image `name` ("normalOn" is 1 of "normal normalOn").
    /// kInvalidArgument when there is no such image or frame.
    virtual tresult findImageFrame(const char* name, const char* frame, uint32& index) = 0;
    /// The bytes of the package's file `path` ("skin.xml", "images/busy.png"), inflated on the
    /// first request and kept by the theme: `data` stays valid as long as the theme lives.
    /// kInvalidArgument when the package has no such file; kUnexpected when it does not inflate
    /// to its recorded size.
    virtual tresult getFile(const char* path, const void*& data, uint64& size) = 0;
    /// The form or view `name` ("SorvelClient", "CredentialsUIPrompt"), or null. No reference
    /// is handed out (see IThemeElement).
    virtual IThemeElement* getForm(const char* name) = 0;
    /// The shape resource `name`, or null. No reference is handed out.
    virtual IThemeElement* getShape(const char* name) = 0;
    /// The number of forms, and the name of the form at `index` in name order (null when out of
    /// range; the text belongs to the theme).
    virtual uint32 countForms() = 0;
    virtual const char* getFormName(uint32 index) = 0;
    /// Reads "skin.xml" now unless that has happened (it is read on the first request for a
    /// style, colour, image or form). kResultOk when the skin is whole; kInvalidArgument when it
    /// is malformed or names what it does not declare (a style, image, frame, form or file): the
    /// theme then answers no style, colour, image or form, only files.
    virtual tresult checkSkin() = 0;

    static constexpr UID kIID = UID::fromString("{E2C94A61-8B37-4F5D-A06E-3D1F7B9C5A42}");
};

/// The host's theme manager: loads the theme packages that modules carry and finds themes by
/// name. User-interface thread.
class IThemeManager : public IUnknown
{
public:
    /// Loads a theme package from `size` bytes at `data` (the module's resource): reads its
    /// directory and inflates every file, keeping the inflated files (the bytes at `data` are not
    /// needed afterwards). kInvalidArgument for a package that cannot be read (wrong magic,
    /// entries that do not inflate to their size, offsets outside the data, no "skin.xml"); the
    /// skin itself is read when first needed (ITheme::checkSkin).
    virtual tresult loadTheme(const char* themeName, const void* data, uint64 size) = 0;
    /// The theme loaded under `themeName`, without a reference (valid as long as the manager
    /// keeps it), or null.
    virtual ITheme* getTheme(const char* themeName) = 0;

    static constexpr UID kIID = UID::fromString("{7A3D1F58-C2E9-4B64-8F07-B5E8A2D4C916}");
};

} // namespace KVX
