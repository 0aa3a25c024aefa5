#pragma once
// The XMP metadata tree: tags with a namespace, a prefix and a name, holding text, arrays
// (ordered, unordered, alternatives), alternative text (one text per language) or structures.
//
// A tree is a value: copies are independent, and editing one never changes another. Parsing
// goes through Exiv2 (and its XMP toolkit); serialisation is ours and canonical, so equal trees
// give equal bytes.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace bic::xmp {

/// The kinds of tag, with the platform's numbers.
enum class TagType : int {
    invalid = -1,
    defaultType = 0,
    string = 1,
    arrayUnordered = 2,
    arrayOrdered = 3,
    alternateArray = 4,
    alternateText = 5,
    structure = 6,
};

/// Namespace URIs and their public prefixes.
namespace ns {
inline constexpr std::string_view dublinCore = "http://purl.org/dc/elements/1.1/";
inline constexpr std::string_view iptcCore = "http://iptc.org/std/Iptc4xmpCore/1.0/xmlns/";
inline constexpr std::string_view iptcExtension = "http://iptc.org/std/Iptc4xmpExt/2008-02-29/";
inline constexpr std::string_view exif = "http://ns.adobe.com/exif/1.0/";
inline constexpr std::string_view exifAux = "http://ns.adobe.com/exif/1.0/aux/";
inline constexpr std::string_view exifEX = "http://cipa.jp/exif/1.0/";
inline constexpr std::string_view tiff = "http://ns.adobe.com/tiff/1.0/";
inline constexpr std::string_view photoshop = "http://ns.adobe.com/photoshop/1.0/";
inline constexpr std::string_view xmpBasic = "http://ns.adobe.com/xap/1.0/";
inline constexpr std::string_view xmpRights = "http://ns.adobe.com/xap/1.0/rights/";
} // namespace ns

/// The public prefix of a namespace ("dc" for Dublin Core …); nothing for namespaces we do not
/// know.
std::optional<std::string_view> publicPrefix(std::string_view namespaceURI);
/// The namespace of a public prefix; nothing for prefixes we do not know.
std::optional<std::string_view> namespaceForPrefix(std::string_view prefix);

class Tag {
public:
    /// A text tag. An empty prefix takes the namespace's public prefix.
    static Tag text(std::string namespaceURI, std::string prefix, std::string name,
                    std::string value);
    /// An array (unordered, ordered or alternatives) of `elements`, a structure of member
    /// tags, or alternative text whose elements are texts with a language.
    static Tag container(std::string namespaceURI, std::string prefix, std::string name,
                         TagType type, std::vector<Tag> elements);
    /// An element of an array: no namespace or name of its own.
    static Tag element(std::string value, std::optional<std::string> language = std::nullopt);
    static Tag element(TagType type, std::vector<Tag> elements);

    const std::string& namespaceURI() const { return namespace_; }
    const std::string& prefix() const { return prefix_; }
    const std::string& name() const { return name_; }
    TagType type() const { return type_; }
    /// "prefix:name"; empty for array elements.
    std::string path() const;
    /// The text of a text tag; nothing for containers.
    const std::optional<std::string>& text() const { return text_; }
    /// Array elements in order, alternative texts (x-default first), or structure members.
    const std::vector<Tag>& elements() const { return elements_; }
    std::vector<Tag>& elements() { return elements_; }
    /// The xml:lang of an alternative text's element.
    const std::optional<std::string>& language() const { return language_; }

    /// A member of a structure by "prefix:name", or an element by "[n]" (1-based); paths go
    /// deeper with "/" ("Iptc4xmpExt:LocationCreated[1]/Iptc4xmpExt:City" from the root). A
    /// public prefix names its namespace whatever prefix the tag carries; any other prefix
    /// names the tags that carry it.
    const Tag* find(std::string_view relativePath) const;

    friend bool operator==(const Tag&, const Tag&) = default;
    friend void choosePrefixes(std::vector<Tag>& tags);

private:
    std::string namespace_, prefix_, name_;
    TagType type_ = TagType::string;
    std::optional<std::string> text_;
    std::optional<std::string> language_;
    std::vector<Tag> elements_;
};

/// RDF's, XML's and the packet wrapper's namespaces, which hold no properties.
bool isReservedNamespace(std::string_view namespaceURI);

/// The canonical order of tags: by namespace, then name.
bool canonicalOrder(const Tag& a, const Tag& b);
/// Puts structure members (and `tags` itself when `sort`) into canonical order, all the way
/// down.
void canonicalize(std::vector<Tag>& tags, bool sort);
/// Gives each namespace in `tags` (members included) one prefix, so that paths name tags
/// unambiguously: a public namespace its public prefix, any other the prefix it came with
/// unless that is empty, reserved, public or another namespace's, in which case a numbered one.
void choosePrefixes(std::vector<Tag>& tags);

/// Whether `text` can stand in an XMP packet: well-formed UTF-8 of characters XML 1.0 allows
/// (no control characters but tab, line feed and carriage return, no U+FFFE or U+FFFF).
bool isXMLText(std::string_view text);

/// A structure for the property bridge: member names (in the property's namespace) and texts.
using PropertyStructure = std::map<std::string, std::string, std::less<>>;

/// What the property bridge accepts as a value: text, numbers and flags become text (integers
/// in decimal, other numbers with six decimals as "%f" writes them in the C locale, flags
/// "True"/"False"); a list becomes an array, a structure a structure and a list of structures
/// an array of them.
using PropertyValue =
    std::variant<std::string, std::int64_t, double, bool, std::vector<std::string>,
                 PropertyStructure, std::vector<PropertyStructure>>;

class Metadata {
public:
    /// An empty tree.
    Metadata() = default;

    /// Parses an XMP packet (with or without its wrapper); nothing when it does not parse.
    /// Prefixes mean what the packet's own declarations bind them to; a property whose
    /// namespace still cannot be told is left out, and the rest is read.
    static std::optional<Metadata> fromXMPData(std::span<const std::uint8_t> data);
    /// The metadata of a photo or image file (JPEG, TIFF, PNG, WebP, the raw formats Exiv2
    /// reads): its XMP, then what its Exif and then its IPTC add (converted into XMP; a
    /// property the XMP already has is never replaced), and the tags this library reads put
    /// where the property bridge looks. XMP that cannot be read leaves the Exif and IPTC.
    /// Nothing when the file cannot be read.
    static std::optional<Metadata> fromImageFile(const std::filesystem::path& path);

    /// The tree as an XMP packet; nothing when a text is not XML text (`isXMLText`), a name is
    /// not an XML name or a tag is in a reserved namespace.
    std::optional<std::vector<std::uint8_t>> xmpData() const;

    /// Top-level tags, ordered by namespace and name. The order of properties in an XMP packet
    /// carries no meaning and parsers do not keep it, so trees keep one canonical order (also
    /// for structure members; array elements keep theirs) and serialise in it: a tree read
    /// back from its own packet is equal to it, byte for byte.
    const std::vector<Tag>& tags() const { return tags_; }

    /// The tag at `path` from the root ("dc:title", "exif:Flash/exif:Fired",
    /// "Iptc4xmpExt:LocationCreated[1]/Iptc4xmpExt:City"), or relative to `parent`.
    const Tag* tag(std::string_view path) const;
    const Tag* tag(const Tag& parent, std::string_view path) const;

    /// Puts `tag` at the top level in its place, replacing a tag of the same namespace and name.
    void setTag(Tag tag);
    /// Puts `tag` among the members of the structure at `parentPath` (the top level when
    /// empty), replacing a member of the same namespace and name; false when there is no such
    /// structure.
    bool setTag(std::string_view parentPath, Tag tag);
    /// Removes the tag at `path` (a member, an array element by "[n]", or a top-level tag);
    /// false when there is none.
    bool removeTag(std::string_view path);

    /// The top-level tag the platform keeps an Exif/IPTC/TIFF/GPS property in ("{Exif}",
    /// "FNumber" → exif:FNumber); nothing when the pair is not mapped or the tag is absent.
    const Tag* tagMatchingImageProperty(std::string_view dictionary,
                                        std::string_view property) const;
    /// Sets the property's tag to `value`; false, changing nothing, when the pair is not mapped
    /// or the value could not be written as XMP.
    bool setValueMatchingImageProperty(std::string_view dictionary, std::string_view property,
                                       const PropertyValue& value);

    friend bool operator==(const Metadata&, const Metadata&) = default;

private:
    friend struct TreeBuilder;
    std::vector<Tag> tags_;
};

} // namespace bic::xmp
