-- For pandoc: a document becomes an HTML page of the package whose links lead to the pages of the other documents. Its
-- title is its first heading.
function Link(link)
    local target = link.target
    if not target:find("^%a+:") then
        if PANDOC_STATE.input_files[1]:find("^packaging/") then
            target = target:gsub("^%.%./", "") -- the first page lies above the others
        end
        link.target = target:gsub("product/README%.md", "docs/stand-in.md"):gsub("%.md$", ".html"):gsub("%.md#", ".html#")
    end
    return link
end

function Pandoc(document)
    for _, block in ipairs(document.blocks) do
        if block.t == "Header" then
            document.meta.pagetitle = pandoc.utils.stringify(block)
            break
        end
    end
    return document
end
